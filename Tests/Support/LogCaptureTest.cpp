#include "Tests/Support/LogCapture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

using wpp_test::LogCapture;

void print(const char* text) {
    std::printf("%s", text);
    std::fflush(stdout);
}

TEST(LogCapture, CollectsTheOutputOfEveryThread) {
    LogCapture log;
    print("here\n");
    std::thread([] { print("there\n"); }).join();
    EXPECT_EQ(log.text(), "here\nthere\n");
}

TEST(LogCapture, LinesLoseColourAndPadding) {
    LogCapture log;
    print("\033[31m   one\n\033[0m\033[49mtwo\n\033[0m");
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"one", "two"}));
}

TEST(LogCapture, ClearForgetsWhatWasCollected) {
    LogCapture log;
    print("before\n");
    log.clear();
    print("after\n");
    EXPECT_EQ(log.text(), "after\n");
    EXPECT_EQ(log.count("before"), 0U);
}

TEST(LogCapture, WaitForSeesALineOfAnotherThread) {
    LogCapture log;
    std::thread writer([] { print("late\n"); });
    EXPECT_TRUE(log.waitFor("late"));
    writer.join();
}

TEST(LogCapture, LaterOutputGoesWhereItWentBefore) {
    LogCapture outer;
    {
        LogCapture inner;
        print("inner\n");
    }
    print("outer\n");
    EXPECT_EQ(outer.text(), "outer\n");
}

}  // namespace
