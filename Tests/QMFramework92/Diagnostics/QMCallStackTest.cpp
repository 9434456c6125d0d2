#include "Diagnostics/QMCallStack.h"

#include <execinfo.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Tests/Support/LogCapture.h"
#include "Tests/Support/SyslogCapture.h"

namespace {

using wpp_test::LogCapture;
using wpp_test::SyslogCapture;

std::vector<std::string> dump(int depth) {
    LogCapture log;
    QMCallStack::dumpDirectly(depth);
    std::vector<std::string> frames;
    for (const std::string& line : log.lines()) {
        const std::string separator = " : ";
        frames.push_back(line.substr(line.find(separator) + separator.size()));
    }
    return frames;
}

TEST(QMCallStack, DepthThreeLogsThreeFrames) {
    EXPECT_EQ(dump(3).size(), 3U);
}

TEST(QMCallStack, DepthOneLogsTheInnermostFrame) {
    EXPECT_EQ(dump(1), std::vector<std::string>{dump(0).front()});
}

TEST(QMCallStack, DepthZeroAndMinusOneLogAllFrames) {
    std::array<void*, 256> addresses;
    const auto frames = static_cast<std::size_t>(backtrace(addresses.data(), 256));
    EXPECT_GE(dump(0).size(), frames);
    EXPECT_EQ(dump(0).size(), dump(-1).size());
}

TEST(QMCallStack, DepthBeyondTheStackLogsAllFrames) {
    EXPECT_EQ(dump(1000).size(), dump(-1).size());
}

TEST(QMCallStack, FramesAreLoggedFromTheInnermostOutwards) {
    std::array<void*, 256> addresses;
    const int count = backtrace(addresses.data(), 256);
    const std::unique_ptr<char*, decltype(&std::free)> symbols(backtrace_symbols(addresses.data(), count),
                                                               &std::free);
    const std::vector<std::string> frames = dump(-1);
    // Both end in the callers of this test; further in they differ by where the stack was taken, here or in
    // the function under test, and by a frame that a sanitizer may add.
    const auto shared = static_cast<std::size_t>(count) - 2;
    ASSERT_GT(frames.size(), shared);
    for (std::size_t i = 1; i <= shared; ++i) {
        EXPECT_EQ(frames[frames.size() - i], symbols.get()[static_cast<std::size_t>(count) - i]);
    }
}

void dumpBelow(int levels);
// Called through a pointer that may change, with work left behind the call: thus each level keeps a frame of
// its own.
void (*volatile nextLevel)(int) = &dumpBelow;
std::atomic<int> levelsLeft{0};

void dumpBelow(int levels) {
    if (levels == 0) {
        QMCallStack::dumpDirectly(-1);
    } else {
        nextLevel(levels - 1);
    }
    ++levelsLeft;
}

TEST(QMCallStack, AtMost256FramesAreLogged) {
    LogCapture log;
    dumpBelow(400);
    EXPECT_EQ(log.lines().size(), 256U);
}

TEST(QMCallStack, FramesGoToTheSystemLogAsErrors) {
    SyslogCapture systemLog;
    LogCapture log;
    QMCallStack::dumpDirectly(2);
    ASSERT_EQ(systemLog.records().size(), 2U);
    EXPECT_EQ(systemLog.records()[0].priority, LOG_ERR);
    EXPECT_EQ(systemLog.records()[0].text.rfind("[error] dumpDirectly()@QMCallStack(", 0), 0U);
    EXPECT_EQ(systemLog.records()[0].text.back(), '\n');
}

}  // namespace
