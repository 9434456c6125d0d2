#include "Diagnostics/QMLog.h"

#include <sys/time.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>

#include "Diagnostics/private/QMLogFormat.h"
#include "Utility/QMWideText.h"
#include "inc/QMFramework.h"

namespace {

using Message = std::array<char, 512>;
using WideMessage = std::array<wchar_t, 512>;
using Line = std::array<char, 768>;
using ColouredLine = std::array<char, 1024>;
using ErrorText = std::array<char, 256>;

constexpr const char* kDefaultColour = "\033[49m";
constexpr const char* kRed = "\033[31m";
constexpr const char* kColourReset = "\033[0m";
constexpr int kConsoleOnly = -1;

struct Level {
    const char* word;
    const char* colour;
    int systemLogPriority;
};

// Indexed by QMLogLevel.
constexpr std::array<Level, 7> kLevels{{
    {"info", kDefaultColour, kConsoleOnly},
    {"error", kRed, LOG_ERR},
    {"debug", kDefaultColour, kConsoleOnly},
    {"verbose", kDefaultColour, kConsoleOnly},
    {"warning", kDefaultColour, kConsoleOnly},
    {"sys", kDefaultColour, LOG_NOTICE},
    {"fault", kRed, LOG_ERR},
}};
constexpr Level kIllegalLevel{"illegal", kDefaultColour, LOG_ERR};

/// Where a log call comes from.
struct Origin {
    const char* file;
    const char* function;
    int line;
};

/// Gives errno back on leaving the scope, so that logging never hides why a call failed.
class ErrnoKeeper {
public:
    ErrnoKeeper() = default;
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;
    ~ErrnoKeeper() { errno = value; }

    const int value = errno;
};

const Level& levelOf(unsigned number) {
    return number < kLevels.size() ? kLevels[number] : kIllegalLevel;
}

// strerror_r comes in two forms, one that returns a status and one that returns the text.
[[maybe_unused]] const char* chooseErrorText(int status, const ErrorText& text) {
    return status == 0 ? text.data() : "Unknown error";
}

[[maybe_unused]] const char* chooseErrorText(const char* result, const ErrorText&) {
    return result;
}

const char* errorTextOf(int error, ErrorText& text) {
    return chooseErrorText(strerror_r(error, text.data(), text.size()), text);
}

/// Right-aligned in 80 columns. One call hands over the whole line, so that no other thread's comes in between.
int printConsoleLine(const char* colour, const qm_detail::TextWriter& line) {
    constexpr std::size_t kColumns = 80;
    ColouredLine coloured;
    qm_detail::TextWriter text(coloured);
    text.append(colour);
    text.pad(kColumns - std::min(kColumns, line.length()));
    text.appendBytes(line.text(), line.length());
    text.append(kColourReset);
    const std::size_t printed = std::fwrite(text.text(), 1, text.length(), stdout);
    std::fflush(stdout);
    return static_cast<int>(printed);
}

/// The point where a file sink attaches; none does.
void passToFileSink(const qm_detail::TimestampedLine&) {}

void passToSystemLog(int priority, const char* line) {
    syslog(priority, "%s", line);
    timeval now{};
    qm_detail::TimestampedLine copy;
    if (gettimeofday(&now, nullptr) == 0 && qm_detail::composeTimestampedLine(now, line, copy)) {
        passToFileSink(copy);
    }
}

int emit(const Level& level, const qm_detail::TextWriter& line) {
    const int printed = printConsoleLine(level.colour, line);
    if (level.systemLogPriority != kConsoleOnly) {
        passToSystemLog(level.systemLogPriority, line.text());
    }
    return printed;
}

void appendOrigin(qm_detail::TextWriter& line, const Origin& from, const Level& level) {
    line.append('[', level.word, "] ", from.function, "()@", qm_detail::baseName(from.file), '(', from.line,
                ") {", qm_GetProcessName(), "} : ");
}

int emitMessage(const Origin& from, const Level& level, const char* message) {
    Line composed;
    qm_detail::TextWriter line(composed);
    appendOrigin(line, from, level);
    line.append(message);
    return emit(level, line);
}

}  // namespace

int qm_Log(const char* file, const char* function, int line, unsigned level, const char* format, ...) {
    const ErrnoKeeper keeper;
    Message message{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message.data(), message.size(), format, arguments);
    va_end(arguments);
    return emitMessage({file, function, line}, levelOf(level), message.data());
}

int qm_LogStdError(const char* file, const char* function, int line, const char* format, ...) {
    const ErrnoKeeper keeper;
    Message message{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message.data(), message.size(), format, arguments);
    va_end(arguments);

    const Level& level = levelOf(QM_LOG_LEVEL_ERROR);
    ErrorText errorText{};
    Line composed;
    qm_detail::TextWriter text(composed);
    appendOrigin(text, {file, function, line}, level);
    text.append("std library error [", keeper.value, " : ", errorTextOf(keeper.value, errorText), "] ",
                message.data());
    return emit(level, text);
}

int qm_LogStdErrorShort(const char* file, const char* function, int line) {
    const ErrnoKeeper keeper;
    ErrorText errorText{};
    return qm_Log(file, function, line, QM_LOG_LEVEL_ERROR, "std library error [%d : %s]\n", keeper.value,
                  errorTextOf(keeper.value, errorText));
}

int qm_LogPlain(const char* file, const char* function, int line, const char* format, ...) {
    constexpr int kNoLine = -1;
    const ErrnoKeeper keeper;
    Message message{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message.data(), message.size(), format, arguments);
    va_end(arguments);

    Line composed;
    qm_detail::TextWriter text(composed);
    text.append(function, " ()@", qm_detail::baseName(file));
    if (line != kNoLine) {
        text.append('(', line, ") ");
    }
    text.append('{', qm_GetProcessName(), "} : ", message.data());
    return printConsoleLine(kDefaultColour, text);
}

int qm_LogWide(const char* file, const char* function, int line, unsigned level, const wchar_t* format, ...) {
    const ErrnoKeeper keeper;
    WideMessage wide{};
    va_list arguments;
    va_start(arguments, format);
    // A message that does not fit is an error to vswprintf, but what fits is there.
    std::vswprintf(wide.data(), wide.size(), format, arguments);
    va_end(arguments);
    wide.back() = L'\0';

    Message message;
    qm_EncodeUtf8(wide.data(), message.data(), message.size());
    return emitMessage({file, function, line}, levelOf(level), message.data());
}

int qm_PrintConsole(const char* format, ...) {
    const ErrnoKeeper keeper;
    Message message{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message.data(), message.size(), format, arguments);
    va_end(arguments);
    const int printed = std::printf("%s%s%s", kDefaultColour, message.data(), kColourReset);
    std::fflush(stdout);
    return printed;
}
