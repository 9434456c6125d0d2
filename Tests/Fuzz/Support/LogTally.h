#pragma once

#include <cstddef>
#include <string>

namespace wpp_test {

// What the product has logged. The fuzz targets are linked with a log of their own that formats each message,
// keeps it and prints nothing: the console and the system log would cost most of a target's time. Any thread.

/// Forgets what was logged so far.
void forgetLog();

/// The number of lines since, of all or of those whose message is `message`.
std::size_t logLines();
std::size_t logLines(const std::string& message);

/// The number of lines since whose message begins with `start`.
std::size_t logLinesFrom(const std::string& start);

/// The number of assertion reports since.
std::size_t assertionReports();

}  // namespace wpp_test
