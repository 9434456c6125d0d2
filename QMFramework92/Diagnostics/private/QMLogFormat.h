#pragma once

#include <sys/time.h>

#include <array>
#include <cstddef>

namespace qm_detail {

/// Room for a whole log line with its time in front.
constexpr std::size_t kTimestampedLineSize = 1024;
using TimestampedLine = std::array<char, kTimestampedLineSize>;

/// The text after the last "/" of `path`; the whole path when it has none.
const char* baseName(const char* path);

/// Writes "yy/mm/dd hh:mm:ss.mmm " in local time and then `line`; the milliseconds are left-aligned in three
/// columns. @return false, with `out` untouched, when the time has no calendar form.
bool composeTimestampedLine(const timeval& time, const char* line, TimestampedLine& out);

}  // namespace qm_detail
