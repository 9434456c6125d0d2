// One log line, flushed, to a standard output that leads to /dev/null; and one that goes to the system log as well.
//
// The system log's place is taken by a function that formats a record and writes it to /dev/null: the machine's own
// log is not flooded, and what is measured is the way to it.

#include "Diagnostics/QMLog.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/syslog_sink.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>

namespace {

constexpr const char* kNull = "/dev/null";

void writeRecord(int priority, const char* format, va_list arguments) __attribute__((format(printf, 2, 0)));
void writeRecord(int priority, const char* format, va_list arguments) {
    static const int sink = open(kNull, O_WRONLY | O_CLOEXEC);
    std::array<char, 1024> record{};
    const int header = std::snprintf(record.data(), record.size(), "<%d>", priority);
    const auto start = static_cast<std::size_t>(header);
    std::vsnprintf(record.data() + start, record.size() - start, format, arguments);
    static_cast<void>(!write(sink, record.data(), std::strlen(record.data())));
}

}  // namespace

// These stand in for the C library's functions of the same names in the whole program.
extern "C" {

void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    writeRecord(priority, format, arguments);
    va_end(arguments);
}

// What syslog becomes when the compiler adds bounds checks. Its name is the C library's.
void __syslog_chk(int priority, int flag, const char* format, ...) __attribute__((format(printf, 3, 4)));
void __syslog_chk(int priority, int /*flag*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    writeRecord(priority, format, arguments);
    va_end(arguments);
}

}  // extern "C"

namespace {

/// Standard output leads to /dev/null for the length of a scope.
class NullOutput {
public:
    NullOutput() : before(dup(STDOUT_FILENO)) {
        std::cout.flush();
        std::fflush(stdout);
        const int sink = open(kNull, O_WRONLY | O_CLOEXEC);
        dup2(sink, STDOUT_FILENO);
        close(sink);
    }
    ~NullOutput() {
        std::fflush(stdout);
        dup2(before, STDOUT_FILENO);
        close(before);
    }
    NullOutput(const NullOutput&) = delete;
    NullOutput& operator=(const NullOutput&) = delete;

private:
    const int before;
};

void ours(benchmark::State& state, bool toSystemLog) {
    const NullOutput output;
    const unsigned level = toSystemLog ? QM_LOG_LEVEL_ERROR : QM_LOG_LEVEL_INFO;
    int number = 0;
    for ([[maybe_unused]] const auto unused : state) {
        QM_LOG(level, "open failed [%d] for [%s]\n", ++number, "WPP_SOCKET");
    }
}
BENCHMARK_CAPTURE(ours, info, false)->Name("log-line/info to null/ours");
BENCHMARK_CAPTURE(ours, error, true)->Name("log-line/error with system log/ours");

/// The calls of a line and nothing else.
void prescribed(benchmark::State& state, bool toSystemLog) {
    const NullOutput output;
    const char* const word = toSystemLog ? "error" : "info";
    const char* const colour = toSystemLog ? "\033[31m" : "\033[49m";
    int number = 0;
    for ([[maybe_unused]] const auto unused : state) {
        char message[512] = {};
        std::snprintf(message, sizeof(message), "open failed [%d] for [%s]\n", ++number, "WPP_SOCKET");
        char line[768];
        std::snprintf(line, sizeof(line), "[%s] %s()@%s(%d) {%s} : %s", word, __func__, "QMLogBenchmark",
                      __LINE__, "", message);
        std::printf("%s%80s%s", colour, line, "\033[0m");
        std::fflush(stdout);
        if (toSystemLog) {
            syslog(LOG_ERR, "%s", line);
            timeval now{};
            gettimeofday(&now, nullptr);
            std::tm local{};
            localtime_r(&now.tv_sec, &local);
            char copy[1024];
            std::snprintf(copy, sizeof(copy), "%02d/%02d/%02d %02d:%02d:%02d.%-3ld %s", local.tm_year - 100,
                          local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                          static_cast<long>(now.tv_usec) / 1000, line);
            benchmark::DoNotOptimize(copy);
        }
    }
}
BENCHMARK_CAPTURE(prescribed, info, false)->Name("log-line/info to null/prescribed");
BENCHMARK_CAPTURE(prescribed, error, true)->Name("log-line/error with system log/prescribed");

/// The same line: level, function, file, line and process around the message, in colour.
void spdlogLine(benchmark::State& state, bool toSystemLog) {
    const std::string pattern = "[%l] %!()@%s(%#) {} : %v\n";
    const auto file = std::make_shared<spdlog::sinks::basic_file_sink_mt>(kNull);
    auto logger = std::make_shared<spdlog::logger>("benchmark", file);
    file->set_formatter(std::make_unique<spdlog::pattern_formatter>("\033[49m" + pattern + "\033[0m",
                                                                    spdlog::pattern_time_type::local, ""));
    if (toSystemLog) {
        const auto system =
            std::make_shared<spdlog::sinks::syslog_sink_mt>("benchmark", LOG_PID, LOG_USER, true);
        system->set_formatter(
            std::make_unique<spdlog::pattern_formatter>(pattern, spdlog::pattern_time_type::local, ""));
        logger->sinks().push_back(system);
    }
    logger->flush_on(spdlog::level::trace);
    const auto level = toSystemLog ? spdlog::level::err : spdlog::level::info;
    int number = 0;
    for ([[maybe_unused]] const auto unused : state) {
        logger->log(spdlog::source_loc{__FILE__, __LINE__, static_cast<const char*>(__func__)}, level,
                    "open failed [{}] for [{}]", ++number, "WPP_SOCKET");
    }
}
BENCHMARK_CAPTURE(spdlogLine, info, false)->Name("log-line/info to null/spdlog");
BENCHMARK_CAPTURE(spdlogLine, error, true)->Name("log-line/error with system log/spdlog");

}  // namespace
