#include "Simulator/private/Io/LineSplitter.h"

#include <gtest/gtest.h>

namespace simulator {
namespace {

using Lines = std::vector<std::string>;

TEST(LineSplitter, CutsAtEveryLineEnd) {
    LineSplitter splitter;
    EXPECT_EQ(splitter.feed("one\n\ntwo\n"), (Lines{"one", "", "two"}));
}

TEST(LineSplitter, KeepsTheBeginningOfALineForLater) {
    LineSplitter splitter;
    EXPECT_EQ(splitter.feed("on"), Lines{});
    EXPECT_EQ(splitter.feed("e\ntw"), Lines{"one"});
    EXPECT_EQ(splitter.takeRest(), "tw");
    EXPECT_EQ(splitter.takeRest(), "");
}

TEST(LineSplitter, CutsALineThatIsTooLong) {
    LineSplitter splitter;
    const Lines lines = splitter.feed(std::string(LineSplitter::kLongestLine + 5, 'x'));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines.front().size(), LineSplitter::kLongestLine);
    EXPECT_EQ(splitter.takeRest(), "xxxxx");
}

}  // namespace
}  // namespace simulator
