#pragma once

#include <array>
#include <cstddef>

/// Log levels. The number is what callers pass, the word is what the line shows.
enum QMLogLevel : unsigned {
    QM_LOG_LEVEL_INFO = 0,     ///< "info", console only
    QM_LOG_LEVEL_ERROR = 1,    ///< "error", red, system log with LOG_ERR
    QM_LOG_LEVEL_DEBUG = 2,    ///< "debug", console only
    QM_LOG_LEVEL_VERBOSE = 3,  ///< "verbose", console only
    QM_LOG_LEVEL_WARNING = 4,  ///< "warning", console only
    QM_LOG_LEVEL_SYS = 5,      ///< "sys", system log with LOG_NOTICE
    QM_LOG_LEVEL_FAULT = 6     ///< "fault", red, system log with LOG_ERR
};

/// Prints one line "[level] function()@file(line) {process} : message" on the console and, for the levels
/// error, sys, fault and any number outside the list ("illegal"), sends it to the system log.
///
/// @param file the caller's source path, of which only what follows the last "/" is shown.
/// @param format printf format; the formatted message is cut to 511 characters. No newline is added.
/// @return not meaningful.
///
/// Any thread may call it, at any time, also before initialisation (the braces are then empty) and after
/// termination. It takes no lock, allocates nothing, never throws and leaves errno as it was. A line shorter
/// than 80 characters is right-aligned in 80 columns. Each line goes out with one printf and one flush.
int qm_Log(const char* file, const char* function, int line, unsigned level, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

/// qm_Log at level error with "std library error [errno : text] " in front of the message.
int qm_LogStdError(const char* file, const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

/// Logs "std library error [%d : %s]\n" with errno and its text at level error.
int qm_LogStdErrorShort(const char* file, const char* function, int line);

/// qm_Log without a level word: "function ()@file(line) {process} : message", the "(line)" left out when
/// line is -1. Default colour, aligned like qm_Log, console only.
int qm_LogPlain(const char* file, const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

/// qm_Log for a wide-character message (vswprintf format), shown as UTF-8 and cut to 511 bytes.
int qm_LogWide(const char* file, const char* function, int line, unsigned level, const wchar_t* format, ...);

/// Prints at most 511 formatted characters in the default colour and flushes. No level, no system log.
int qm_PrintConsole(const char* format, ...) __attribute__((format(printf, 1, 2)));

namespace qm_detail {

/// The path without its extension, null-terminated: "a/b/File.cpp" becomes "a/b/File".
template <std::size_t N>
constexpr std::array<char, N> stripExtension(const char (&path)[N]) {
    std::size_t end = N - 1;
    for (std::size_t i = 0; i + 1 < N; ++i) {
        if (path[i] == '.') {
            end = i;
        } else if (path[i] == '/') {
            end = N - 1;
        }
    }
    std::array<char, N> out{};
    for (std::size_t i = 0; i < end; ++i) {
        out[i] = path[i];
    }
    return out;
}

}  // namespace qm_detail

/// The source path of this line, relative to the repository and without its extension, made at compile time.
#define QM_SOURCE_PATH                                                       \
    ([]() noexcept -> const char* {                                          \
        static constexpr auto kPath = ::qm_detail::stripExtension(__FILE__); \
        return kPath.data();                                                 \
    }())

#define QM_LOG(level, ...) static_cast<void>(qm_Log(QM_SOURCE_PATH, __func__, __LINE__, (level), __VA_ARGS__))
#define QM_LOG_INFO(...) QM_LOG(QM_LOG_LEVEL_INFO, __VA_ARGS__)
#define QM_LOG_ERROR(...) QM_LOG(QM_LOG_LEVEL_ERROR, __VA_ARGS__)
#define QM_LOG_SYS(...) QM_LOG(QM_LOG_LEVEL_SYS, __VA_ARGS__)
#define QM_LOG_STD_ERROR(...) \
    static_cast<void>(qm_LogStdError(QM_SOURCE_PATH, __func__, __LINE__, __VA_ARGS__))
#define QM_LOG_STD_ERROR_SHORT() static_cast<void>(qm_LogStdErrorShort(QM_SOURCE_PATH, __func__, __LINE__))
