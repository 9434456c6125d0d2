#include "Diagnostics/QMLog.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "Tests/Support/LogCapture.h"
#include "Tests/Support/SyslogCapture.h"

namespace {

using wpp_test::LogCapture;
using wpp_test::SyslogCapture;

constexpr const char* kFile = "src/app/Main";
constexpr const char* kDefaultColour = "\033[49m";
constexpr const char* kRed = "\033[31m";
constexpr const char* kReset = "\033[0m";

std::string padded(const std::string& line) {
    constexpr std::size_t kColumns = 80;
    return line.size() < kColumns ? std::string(kColumns - line.size(), ' ') + line : line;
}

struct LevelCase {
    unsigned level;
    const char* word;
    const char* colour;
};

class QMLogLevels : public testing::TestWithParam<LevelCase> {};

TEST_P(QMLogLevels, PrintsItsWordInItsColour) {
    LogCapture log;
    qm_Log(kFile, "Run", 120, GetParam().level, "open failed [%d]\n", 5);
    const std::string line = std::string("[") + GetParam().word + "] Run()@Main(120) {} : open failed [5]\n";
    EXPECT_EQ(log.text(), GetParam().colour + padded(line) + kReset);
}

INSTANTIATE_TEST_SUITE_P(
    All, QMLogLevels,
    testing::Values(LevelCase{0, "info", kDefaultColour}, LevelCase{1, "error", kRed},
                    LevelCase{2, "debug", kDefaultColour}, LevelCase{3, "verbose", kDefaultColour},
                    LevelCase{4, "warning", kDefaultColour}, LevelCase{5, "sys", kDefaultColour},
                    LevelCase{6, "fault", kRed}, LevelCase{7, "illegal", kDefaultColour},
                    LevelCase{9, "illegal", kDefaultColour},
                    LevelCase{0xFFFFFFFFU, "illegal", kDefaultColour}),
    [](const auto& tested) { return std::string(tested.param.word) + std::to_string(tested.param.level); });

class QMLogConsoleOnlyLevels : public testing::TestWithParam<unsigned> {};

TEST_P(QMLogConsoleOnlyLevels, NeverReachTheSystemLog) {
    SyslogCapture systemLog;
    LogCapture log;
    qm_Log(kFile, "Run", 1, GetParam(), "quiet\n");
    EXPECT_TRUE(systemLog.records().empty());
    EXPECT_TRUE(log.contains("quiet"));
}

INSTANTIATE_TEST_SUITE_P(All, QMLogConsoleOnlyLevels, testing::Values(0U, 2U, 3U, 4U));

struct SystemLogCase {
    unsigned level;
    const char* word;
    int priority;
};

class QMLogSystemLogLevels : public testing::TestWithParam<SystemLogCase> {};

TEST_P(QMLogSystemLogLevels, SendTheBareLineOnceWithTheirPriority) {
    SyslogCapture systemLog;
    LogCapture log;
    qm_Log(kFile, "Run", 7, GetParam().level, "loud %s\n", "100%s");
    ASSERT_EQ(systemLog.records().size(), 1U);
    EXPECT_EQ(systemLog.records()[0].priority, GetParam().priority);
    EXPECT_EQ(systemLog.records()[0].text,
              std::string("[") + GetParam().word + "] Run()@Main(7) {} : loud 100%s\n");
}

INSTANTIATE_TEST_SUITE_P(All, QMLogSystemLogLevels,
                         testing::Values(SystemLogCase{1, "error", LOG_ERR},
                                         SystemLogCase{5, "sys", LOG_NOTICE},
                                         SystemLogCase{6, "fault", LOG_ERR},
                                         SystemLogCase{9, "illegal", LOG_ERR}));

std::string messageForLineOf(std::size_t length) {
    return std::string(length - std::string("[info] f()@F(1) {} : ").size(), 'x');
}

TEST(QMLog, LineOf40CharactersIsPrecededBy40Spaces) {
    LogCapture log;
    const std::string message = messageForLineOf(40);
    qm_Log("a/F", "f", 1, QM_LOG_LEVEL_INFO, "%s", message.c_str());
    EXPECT_EQ(log.text(), kDefaultColour + std::string(40, ' ') + "[info] f()@F(1) {} : " + message + kReset);
}

TEST(QMLog, LineOf100CharactersIsNotPadded) {
    LogCapture log;
    const std::string message = messageForLineOf(100);
    qm_Log("a/F", "f", 1, QM_LOG_LEVEL_INFO, "%s", message.c_str());
    EXPECT_EQ(log.text(), kDefaultColour + ("[info] f()@F(1) {} : " + message) + kReset);
}

TEST(QMLog, MessageOf600CharactersIsCutTo511) {
    LogCapture log;
    qm_Log("a/F", "f", 1, QM_LOG_LEVEL_INFO, "%s", std::string(600, 'm').c_str());
    EXPECT_EQ(log.text(), kDefaultColour + ("[info] f()@F(1) {} : " + std::string(511, 'm')) + kReset);
}

TEST(QMLog, BracesAreEmptyBeforeInitialisation) {
    LogCapture log;
    qm_Log(kFile, "Run", 3, QM_LOG_LEVEL_INFO, "early\n");
    EXPECT_EQ(log.lines(), std::vector<std::string>{"[info] Run()@Main(3) {} : early"});
}

TEST(QMLog, FileWithoutSlashIsShownWhole) {
    LogCapture log;
    qm_Log("Main", "Run", 3, QM_LOG_LEVEL_INFO, "x\n");
    EXPECT_EQ(log.lines(), std::vector<std::string>{"[info] Run()@Main(3) {} : x"});
}

TEST(QMLog, OverlongFunctionNameCutsTheLineAt767Characters) {
    SyslogCapture systemLog;
    LogCapture log;
    const std::string function(2000, 'f');
    qm_Log(kFile, function.c_str(), 3, QM_LOG_LEVEL_ERROR, "lost\n");
    ASSERT_EQ(systemLog.records().size(), 1U);
    EXPECT_EQ(systemLog.records()[0].text, ("[error] " + function).substr(0, 767));
}

TEST(QMLog, LeavesErrnoAsItWas) {
    LogCapture log;
    errno = ENOENT;
    qm_Log(kFile, "Run", 3, QM_LOG_LEVEL_FAULT, "x\n");
    EXPECT_EQ(errno, ENOENT);
}

TEST(QMLog, LinesOfManyThreadsStayWhole) {
    constexpr std::size_t kThreads = 4;
    constexpr std::size_t kLinesEach = 200;
    LogCapture log;
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([] {
            for (std::size_t n = 0; n < kLinesEach; ++n) {
                qm_Log(kFile, "Run", 1, QM_LOG_LEVEL_SYS, "a line of one of several threads\n");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<std::string> lines = log.lines();
    EXPECT_EQ(lines, std::vector<std::string>(kThreads * kLinesEach,
                                              "[sys] Run()@Main(1) {} : a line of one of several threads"));
}

TEST(QMLogStdError, PutsErrnoAndItsTextInFrontOfTheMessage) {
    SyslogCapture systemLog;
    LogCapture log;
    errno = ENOENT;
    qm_LogStdError(kFile, "Open", 9, ", path[%s], fopen()\n", "x");
    const std::string line =
        "[error] Open()@Main(9) {} : std library error [2 : No such file or directory] , path[x], fopen()\n";
    EXPECT_EQ(log.text(), kRed + line + kReset);
    ASSERT_EQ(systemLog.records().size(), 1U);
    EXPECT_EQ(systemLog.records()[0].priority, LOG_ERR);
    EXPECT_EQ(systemLog.records()[0].text, line);
}

TEST(QMLogStdError, ShowsAnUnknownErrorNumber) {
    LogCapture log;
    errno = 9999;
    qm_LogStdError(kFile, "Open", 9, ", x()\n");
    EXPECT_EQ(log.lines(), std::vector<std::string>{"[error] Open()@Main(9) {} : std library error [9999 : "
                                                    "Unknown error 9999] , x()"});
}

TEST(QMLogStdError, CutsTheMessageTo511Characters) {
    SyslogCapture systemLog;
    LogCapture log;
    errno = EPERM;
    qm_LogStdError("a/F", "f", 1, "%s", std::string(600, 'm').c_str());
    ASSERT_EQ(systemLog.records().size(), 1U);
    EXPECT_EQ(
        systemLog.records()[0].text,
        "[error] f()@F(1) {} : std library error [1 : Operation not permitted] " + std::string(511, 'm'));
}

TEST(QMLogStdError, LeavesErrnoAsItWas) {
    LogCapture log;
    errno = EAGAIN;
    qm_LogStdError(kFile, "Open", 9, ", x()\n");
    EXPECT_EQ(errno, EAGAIN);
}

TEST(QMLogStdErrorShort, LogsErrnoAndItsTextAlone) {
    SyslogCapture systemLog;
    LogCapture log;
    errno = EPIPE;
    qm_LogStdErrorShort(kFile, "Write", 4);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{"[error] Write()@Main(4) {} : std library error [32 : Broken pipe]"});
    EXPECT_TRUE(systemLog.contains(LOG_ERR, "std library error [32 : Broken pipe]\n"));
}

TEST(QMLogPlain, ShowsNoLevelWordAndStaysOnTheConsole) {
    SyslogCapture systemLog;
    LogCapture log;
    qm_LogPlain(kFile, "Run", 12, "n[%d]\n", 1);
    EXPECT_EQ(log.text(), kDefaultColour + padded("Run ()@Main(12) {} : n[1]\n") + kReset);
    EXPECT_TRUE(systemLog.records().empty());
}

TEST(QMLogPlain, LeavesOutALineOfMinusOne) {
    LogCapture log;
    qm_LogPlain(kFile, "Run", -1, "n[%d]\n", 1);
    EXPECT_EQ(log.text(), kDefaultColour + padded("Run ()@Main{} : n[1]\n") + kReset);
}

TEST(QMLogWide, FormatsAWideMessageIntoTheSameLine) {
    SyslogCapture systemLog;
    LogCapture log;
    qm_LogWide(kFile, "Run", 12, QM_LOG_LEVEL_ERROR, L"n[%d] [%ls]\n", 1, L"wide");
    EXPECT_EQ(log.text(), kRed + padded("[error] Run()@Main(12) {} : n[1] [wide]\n") + kReset);
    EXPECT_TRUE(systemLog.contains(LOG_ERR, "n[1] [wide]\n"));
}

TEST(QMLogWide, CutsTheMessageTo511Characters) {
    LogCapture log;
    qm_LogWide("a/F", "f", 1, QM_LOG_LEVEL_INFO, L"%ls", std::wstring(600, L'w').c_str());
    EXPECT_EQ(log.text(), kDefaultColour + ("[info] f()@F(1) {} : " + std::string(511, 'w')) + kReset);
}

TEST(QMLogWide, ShowsCharactersBeyondAsciiAsUtf8) {
    LogCapture log;
    qm_LogWide("a/F", "f", 1, QM_LOG_LEVEL_INFO, L"%ls\n", L"\u00e9\u20ac\U0001F600");
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{"[info] f()@F(1) {} : \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"});
}

TEST(QMLogWide, CutsUtf8AtAWholeCharacter) {
    LogCapture log;
    qm_LogWide("a/F", "f", 1, QM_LOG_LEVEL_INFO, L"%ls", (std::wstring(510, L'w') + L"\u00e9").c_str());
    EXPECT_EQ(log.text(), kDefaultColour + ("[info] f()@F(1) {} : " + std::string(510, 'w')) + kReset);
}

TEST(QMPrintConsole, PrintsTheBareTextInTheDefaultColour) {
    SyslogCapture systemLog;
    LogCapture log;
    qm_PrintConsole("a[%d]\n", 3);
    EXPECT_EQ(log.text(), "\033[49ma[3]\n\033[0m");
    EXPECT_TRUE(systemLog.records().empty());
}

TEST(QMPrintConsole, CutsTheTextTo511Characters) {
    LogCapture log;
    qm_PrintConsole("%s", std::string(600, 'c').c_str());
    EXPECT_EQ(log.text(), kDefaultColour + std::string(511, 'c') + kReset);
}

TEST(QMLogMacros, SupplyPathWithoutExtensionFunctionAndLine) {
    LogCapture log;
    const int line = __LINE__ + 1;
    QM_LOG_ERROR("macro [%d]\n", 1);
    EXPECT_STREQ(QM_SOURCE_PATH, "Tests/QMFramework92/Diagnostics/QMLogTest");
    EXPECT_EQ(log.lines(), std::vector<std::string>{"[error] TestBody()@QMLogTest(" + std::to_string(line) +
                                                    ") {} : macro [1]"});
}

TEST(QMLogMacros, NameTheLevelTheyStandFor) {
    LogCapture log;
    errno = EIO;
    QM_LOG_INFO("one\n");
    QM_LOG_SYS("two\n");
    QM_LOG_STD_ERROR(", three()\n");
    QM_LOG_STD_ERROR_SHORT();
    const std::vector<std::string> lines = log.lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0].rfind("[info] ", 0), 0U);
    EXPECT_EQ(lines[1].rfind("[sys] ", 0), 0U);
    EXPECT_NE(lines[2].find("std library error [5 : Input/output error] , three()"), std::string::npos);
    EXPECT_NE(lines[3].find("std library error [5 : Input/output error]"), std::string::npos);
}

TEST(QMLogSourcePath, LosesOnlyTheExtensionOfTheFile) {
    EXPECT_STREQ(qm_detail::stripExtension("a/b/File.cpp").data(), "a/b/File");
    EXPECT_STREQ(qm_detail::stripExtension("a.d/File").data(), "a.d/File");
    EXPECT_STREQ(qm_detail::stripExtension("a.d/File.tar.gz").data(), "a.d/File.tar");
    EXPECT_STREQ(qm_detail::stripExtension("").data(), "");
}

}  // namespace
