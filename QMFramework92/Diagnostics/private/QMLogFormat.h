#pragma once

#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace qm_detail {

/// Puts a text together piece by piece in a buffer of fixed size, where it is always terminated. What does not fit
/// is cut.
class TextWriter {
public:
    template <std::size_t Size>
    explicit TextWriter(std::array<char, Size>& buffer) : first(buffer.data()), room(Size - 1) {
        static_assert(Size > 0, "the terminator needs its place");
        *first = '\0';
    }

    /// Appends texts, single characters and numbers in their order.
    template <class... Pieces>
    void append(const Pieces&... pieces) {
        (appendOne(pieces), ...);
    }
    void appendBytes(const char* bytes, std::size_t count) {
        const std::size_t fitting = std::min(count, room - used);
        std::memcpy(first + used, bytes, fitting);
        used += fitting;
        first[used] = '\0';
    }
    /// Appends `count` spaces.
    void pad(std::size_t count);
    /// Appends a number as "%02d" shows it.
    void appendTwoDigits(int number);

    const char* text() const { return first; }
    std::size_t length() const { return used; }

private:
    void appendOne(const char* text) {
        const char* const shown = text == nullptr ? "(null)" : text;
        appendBytes(shown, std::strlen(shown));
    }
    void appendOne(char character) { appendBytes(&character, 1); }
    void appendOne(int number);

    char* const first;
    const std::size_t room;
    std::size_t used = 0;
};

/// Room for a whole log line with its time in front.
constexpr std::size_t kTimestampedLineSize = 1024;
using TimestampedLine = std::array<char, kTimestampedLineSize>;

/// The text after the last "/" of `path`; the whole path when it has none.
const char* baseName(const char* path);

/// Writes "yy/mm/dd hh:mm:ss.mmm " in local time and then `line`; the milliseconds are left-aligned in three
/// columns. @return false, with `out` untouched, when the time has no calendar form.
bool composeTimestampedLine(const timeval& time, const char* line, TimestampedLine& out);

}  // namespace qm_detail
