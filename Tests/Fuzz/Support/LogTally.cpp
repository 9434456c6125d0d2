#include "Tests/Fuzz/Support/LogTally.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <vector>

#include "Diagnostics/QMAssert.h"
#include "Diagnostics/QMLog.h"
#include "Tests/Fuzz/Support/FuzzCheck.h"

namespace {

constexpr std::size_t kMessageSize = 512;

std::mutex mutex;
std::vector<std::string> messages;
std::size_t assertions = 0;

int keep(const char* format, va_list arguments) {
    const int savedErrno = errno;
    std::array<char, kMessageSize> text{};
    const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
    FUZZ_CHECK(length >= 0);
    const std::lock_guard<std::mutex> guard(mutex);
    messages.emplace_back(text.data());
    errno = savedErrno;
    return length;
}

template <class Predicate>
std::size_t countMessages(Predicate predicate) {
    const std::lock_guard<std::mutex> guard(mutex);
    return static_cast<std::size_t>(std::count_if(messages.begin(), messages.end(), predicate));
}

}  // namespace

namespace wpp_test {

void forgetLog() {
    const std::lock_guard<std::mutex> guard(mutex);
    messages.clear();
    assertions = 0;
}

std::size_t logLines() {
    return countMessages([](const std::string&) { return true; });
}

std::size_t logLines(const std::string& message) {
    return countMessages([&message](const std::string& kept) { return kept == message; });
}

std::size_t logLinesFrom(const std::string& start) {
    return countMessages([&start](const std::string& kept) { return kept.rfind(start, 0) == 0; });
}

std::size_t assertionReports() {
    const std::lock_guard<std::mutex> guard(mutex);
    return assertions;
}

}  // namespace wpp_test

// This program's own forms of the log's operations; they take the place of the framework's.

int qm_Log(const char*, const char*, int, unsigned, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = keep(format, arguments);
    va_end(arguments);
    return length;
}

int qm_LogStdError(const char*, const char*, int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = keep(format, arguments);
    va_end(arguments);
    return length;
}

int qm_LogStdErrorShort(const char* file, const char* function, int line) {
    return qm_Log(file, function, line, QM_LOG_LEVEL_ERROR, "std library error\n");
}

int qm_LogPlain(const char*, const char*, int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = keep(format, arguments);
    va_end(arguments);
    return length;
}

int qm_LogWide(const char* file, const char* function, int line, unsigned level, const wchar_t*, ...) {
    return qm_Log(file, function, line, level, "wide message\n");
}

int qm_PrintConsole(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = keep(format, arguments);
    va_end(arguments);
    return length;
}

void qm_ReportAssertion(const char*, int) {
    const std::lock_guard<std::mutex> guard(mutex);
    ++assertions;
}
