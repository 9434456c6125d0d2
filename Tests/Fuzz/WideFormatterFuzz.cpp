// The wide formatter: any format, width and room, with arguments of the types that the format asks for. The text is
// the model's, cut to the room and terminated, and nothing behind the room is touched.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "Tests/Fuzz/Support/FuzzCheck.h"
#include "Tests/Fuzz/Support/FuzzInput.h"
#include "Utility/QMFormatWide.h"

namespace {

constexpr std::size_t kMostArguments = 2;
constexpr std::size_t kMostRoom = 700;  // the longest number has some 320 characters
constexpr unsigned kWidestPadding = 2000;

struct Argument {
    std::wstring text;
    bool isNull = false;
    int number = 0;
    double real = 0;
};
using Arguments = std::array<Argument, kMostArguments>;

Argument takeArgument(wpp_test::FuzzInput& input) {
    Argument argument;
    const unsigned kind = input.takeByte();
    argument.isNull = kind % 8 == 7;
    for (unsigned i = 0; i < kind / 16; ++i) {
        argument.text.push_back(static_cast<wchar_t>(input.takeShort() + 1));
    }
    argument.number = static_cast<int>(input.takeWord());
    const std::uint64_t bits = (std::uint64_t{input.takeWord()} << 32) | input.takeWord();
    std::memcpy(&argument.real, &bits, sizeof(bits));
    return argument;
}

/// Splits a format as its documentation says; collects the model's text and the letters of the conversions.
class Model {
public:
    Model(const std::wstring& formatText, const Arguments& values) : format(formatText), arguments(values) {
        while (at < format.size() && letters.size() < kMostArguments) {
            format[at] == L'%' ? convert() : static_cast<void>(text += format[at++]);
        }
        used = format.substr(0, at);
    }

    std::wstring text;
    std::string letters;
    std::wstring used;  // the part of the format that the model covers

private:
    void convert() {
        std::size_t end = at + 1;
        while (end < format.size() && format[end] >= L'0' && format[end] <= L'9') {
            ++end;
        }
        const std::wstring digits = format.substr(at + 1, end - at - 1);
        const wchar_t letter = end < format.size() ? format[end] : L'\0';
        if (letter == L'\0' || std::wcschr(L"sSdf%", letter) == nullptr) {
            text += format.substr(at, end - at);
            at = end;
            return;
        }
        at = end + 1;
        if (letter == L'%') {
            text += L'%';
            return;
        }
        const Argument& argument = arguments[letters.size()];
        letters += letter == L'd' ? 'd' : letter == L'f' ? 'f' : 's';
        pad(digits, letters.back() == 's', shown(argument, letters.back()));
    }

    static std::wstring shown(const Argument& argument, char letter) {
        if (letter == 's') {
            return argument.isNull ? std::wstring() : argument.text;
        }
        std::array<char, 400> digits{};
        if (letter == 'd') {
            std::snprintf(digits.data(), digits.size(), "%d", argument.number);
        } else {
            std::snprintf(digits.data(), digits.size(), "%.6f", argument.real);
        }
        return std::wstring(digits.data(), digits.data() + std::strlen(digits.data()));
    }

    void pad(const std::wstring& digits, bool isText, const std::wstring& value) {
        std::size_t width = 0;
        for (const wchar_t digit : digits) {
            width =
                std::min<std::size_t>(width * 10 + static_cast<std::size_t>(digit - L'0'), kWidestPadding);
        }
        const std::size_t padding = width > value.size() ? width - value.size() : 0;
        if (isText || digits.empty() || digits[0] != L'0') {
            text += std::wstring(padding, L' ') + value;
            return;
        }
        const std::size_t sign = !value.empty() && value[0] == L'-' ? 1 : 0;
        text += value.substr(0, sign) + std::wstring(padding, L'0') + value.substr(sign);
    }

    const std::wstring& format;
    const Arguments& arguments;
    std::size_t at = 0;
};

/// Passes the arguments on with the types that the letters name.
template <class... Passed>
void call(wchar_t* room, unsigned capacity, const wchar_t* format, const std::string& letters,
          const Arguments& arguments, Passed... passed) {
    constexpr std::size_t kIndex = sizeof...(Passed);
    if constexpr (kIndex < kMostArguments) {
        if (kIndex < letters.size()) {
            const Argument& argument = arguments[kIndex];
            switch (letters[kIndex]) {
                case 's': {
                    const wchar_t* text = argument.isNull ? nullptr : argument.text.c_str();
                    return call(room, capacity, format, letters, arguments, passed..., text);
                }
                case 'd':
                    return call(room, capacity, format, letters, arguments, passed..., argument.number);
                default:
                    return call(room, capacity, format, letters, arguments, passed..., argument.real);
            }
        }
    }
    qm_FormatWide(room, capacity, format, passed...);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    wpp_test::FuzzInput input(data, size);
    const unsigned capacity = input.takeShort() % kMostRoom;
    Arguments arguments;
    std::generate(arguments.begin(), arguments.end(), [&input] { return takeArgument(input); });
    std::wstring format;
    while (!input.isEmpty()) {
        // Most characters of a format are ASCII; 0xFF leads one that is not.
        const unsigned byte = input.takeByte();
        format.push_back(static_cast<wchar_t>(byte == 0xFF ? input.takeShort() : byte));
    }
    format = format.c_str();

    const Model model(format, arguments);
    std::vector<wchar_t> room(capacity, L'#');
    call(capacity == 0 ? nullptr : room.data(), capacity, model.used.c_str(), model.letters, arguments);
    if (capacity == 0) {
        wchar_t untouched = L'#';
        call(&untouched, 0, model.used.c_str(), model.letters, arguments);
        FUZZ_CHECK(untouched == L'#');
        return 0;
    }
    const std::wstring expected = model.text.substr(0, capacity - 1);
    FUZZ_CHECK(std::equal(expected.begin(), expected.end(), room.begin()));
    FUZZ_CHECK(room[expected.size()] == L'\0');

    qm_FormatWide(room.data(), capacity, nullptr);
    FUZZ_CHECK(room[0] == L'\0');
    return 0;
}
