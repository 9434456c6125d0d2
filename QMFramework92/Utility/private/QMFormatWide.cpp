#include "Utility/QMFormatWide.h"

#include <array>
#include <charconv>
#include <cstdarg>
#include <cstddef>
#include <cwchar>
#include <system_error>

namespace {

/// A buffer that takes what fits and lets go of the rest.
class BoundedText {
public:
    BoundedText(wchar_t* buffer, unsigned capacity) : next(buffer), last(buffer + capacity - 1) {}

    void put(wchar_t character) {
        if (next != last) {
            *next++ = character;
        }
    }

    void put(const wchar_t* begin, const wchar_t* end) {
        for (; begin != end; ++begin) {
            put(*begin);
        }
    }

    /// `count` times; a huge count costs no more than the room that is left.
    void fill(std::size_t count, wchar_t character) {
        for (; count > 0 && next != last; --count) {
            put(character);
        }
    }

    void terminate() { *next = L'\0'; }

private:
    wchar_t* next;
    wchar_t* const last;
};

/// What stands between a percent sign and the letter of the conversion.
struct Field {
    bool zeroPadded = false;
    std::size_t width = 0;
};

// Wider than any buffer; a width is counted no further.
constexpr std::size_t kLargestWidth = 0xFFFFFF;

Field readField(const wchar_t*& at) {
    Field field;
    field.zeroPadded = *at == L'0';
    for (; *at >= L'0' && *at <= L'9'; ++at) {
        if (field.width < kLargestWidth) {
            field.width = field.width * 10 + static_cast<std::size_t>(*at - L'0');
        }
    }
    return field;
}

void putPadding(BoundedText& out, const Field& field, std::size_t length, wchar_t padding) {
    if (field.width > length) {
        out.fill(field.width - length, padding);
    }
}

void putString(BoundedText& out, const Field& field, const wchar_t* text) {
    const wchar_t* shown = text == nullptr ? L"" : text;
    const std::size_t length = std::wcslen(shown);
    putPadding(out, field, length, L' ');
    out.put(shown, shown + length);
}

/// `begin` to `end` are the ASCII characters of a number, at least one, a sign in front or none.
void putNumber(BoundedText& out, const Field& field, const char* begin, const char* end) {
    const auto length = static_cast<std::size_t>(end - begin);
    if (!field.zeroPadded) {
        putPadding(out, field, length, L' ');
    }
    if (*begin == '-') {
        out.put(L'-');
        ++begin;
    }
    if (field.zeroPadded) {
        putPadding(out, field, length, L'0');
    }
    for (; begin != end; ++begin) {
        out.put(static_cast<wchar_t>(*begin));
    }
}

void putInteger(BoundedText& out, const Field& field, int value) {
    std::array<char, 16> digits{};
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    putNumber(out, field, digits.data(), result.ptr);
}

void putReal(BoundedText& out, const Field& field, double value) {
    constexpr int kDecimals = 6;
    // The largest double has 309 digits before its point.
    std::array<char, 320> digits{};
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), value,
                                      std::chars_format::fixed, kDecimals);
    putNumber(out, field, digits.data(), result.ptr);
}

}  // namespace

void qm_FormatWide(wchar_t* dst, unsigned capacity, const wchar_t* format, ...) {
    if (dst == nullptr || capacity == 0) {
        return;
    }
    BoundedText out(dst, capacity);
    va_list arguments;
    va_start(arguments, format);
    const wchar_t* at = format == nullptr ? L"" : format;
    while (*at != L'\0') {
        if (*at != L'%') {
            out.put(*at++);
            continue;
        }
        const wchar_t* percent = at++;
        const Field field = readField(at);
        switch (*at) {
            case L's':
            case L'S':
                putString(out, field, va_arg(arguments, const wchar_t*));
                ++at;
                break;
            case L'd':
                putInteger(out, field, va_arg(arguments, int));
                ++at;
                break;
            case L'f':
                putReal(out, field, va_arg(arguments, double));
                ++at;
                break;
            case L'%':
                out.put(L'%');
                ++at;
                break;
            default:
                out.put(percent, at);
                break;
        }
    }
    va_end(arguments);
    out.terminate();
}
