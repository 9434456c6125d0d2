#include "Utility/QMWideText.h"

#include <array>
#include <cstdint>

namespace {

constexpr std::uint32_t kLastCharacter = 0x10FFFF;
constexpr std::uint32_t kReplacementCharacter = 0xFFFD;

std::uint32_t characterOf(wchar_t unit) {
    const auto code = static_cast<std::uint32_t>(unit);
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    return isSurrogate || code > kLastCharacter ? kReplacementCharacter : code;
}

unsigned trailingBytesOf(std::uint32_t code) {
    return code < 0x80 ? 0 : code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
}

void encode(std::uint32_t code, unsigned trailing, char* out) {
    constexpr std::array<std::uint32_t, 4> kLeadMarks{{0x00, 0xC0, 0xE0, 0xF0}};
    *out++ = static_cast<char>(kLeadMarks[trailing] | (code >> (6 * trailing)));
    for (unsigned left = trailing; left > 0; --left) {
        *out++ = static_cast<char>(0x80U | ((code >> (6 * (left - 1))) & 0x3FU));
    }
}

}  // namespace

bool qm_EncodeUtf8(const wchar_t* text, char* out, std::size_t capacity) {
    if (capacity == 0) {
        return false;
    }
    std::size_t end = 0;
    const wchar_t* unit = text;
    for (; unit != nullptr && *unit != L'\0'; ++unit) {
        const std::uint32_t code = characterOf(*unit);
        const unsigned trailing = trailingBytesOf(code);
        if (capacity - end <= trailing + 1) {
            break;
        }
        encode(code, trailing, out + end);
        end += trailing + 1;
    }
    out[end] = '\0';
    return unit != nullptr && *unit == L'\0';
}
