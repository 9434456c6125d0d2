#include "Diagnostics/private/QMLogFormat.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <ctime>
#include <limits>
#include <utility>

namespace qm_detail {

const char* baseName(const char* path) {
    const char* lastSlash = std::strrchr(path, '/');
    return lastSlash == nullptr ? path : lastSlash + 1;
}

void TextWriter::pad(std::size_t count) {
    const std::size_t fitting = std::min(count, room - used);
    std::memset(first + used, ' ', fitting);
    used += fitting;
    first[used] = '\0';
}

void TextWriter::appendOne(int number) {
    std::array<char, std::numeric_limits<int>::digits10 + 2> digits;
    const auto converted = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    appendBytes(digits.data(), static_cast<std::size_t>(converted.ptr - digits.data()));
}

void TextWriter::appendTwoDigits(int number) {
    if (number >= 0 && number < 10) {
        appendOne('0');
    }
    appendOne(number);
}

bool composeTimestampedLine(const timeval& time, const char* line, TimestampedLine& out) {
    constexpr int kYearsFrom1900To2000 = 100;
    constexpr long kMicrosecondsPerMillisecond = 1000;
    constexpr std::size_t kMillisecondColumns = 3;
    const std::time_t seconds = time.tv_sec;
    std::tm local{};
    if (localtime_r(&seconds, &local) == nullptr) {
        return false;
    }
    TextWriter text(out);
    text.appendTwoDigits(local.tm_year - kYearsFrom1900To2000);
    for (const auto& [separator, number] :
         {std::pair('/', local.tm_mon + 1), std::pair('/', local.tm_mday), std::pair(' ', local.tm_hour),
          std::pair(':', local.tm_min), std::pair(':', local.tm_sec)}) {
        text.append(separator);
        text.appendTwoDigits(number);
    }
    text.append('.');
    const std::size_t end = text.length() + kMillisecondColumns;
    text.append(static_cast<int>(time.tv_usec / kMicrosecondsPerMillisecond));
    text.pad(end - std::min(end, text.length()));
    text.append(' ', line);
    return true;
}

}  // namespace qm_detail
