#include "Utility/QMFormatWide.h"

#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <string>

namespace {

/// Formats into a buffer of `capacity` characters that has a guard behind it.
template <class... Arguments>
std::wstring format(unsigned capacity, const wchar_t* pattern, Arguments... arguments) {
    std::wstring buffer(capacity + 1, L'#');
    qm_FormatWide(buffer.data(), capacity, pattern, arguments...);
    EXPECT_EQ(L'#', buffer.back());
    return buffer.c_str();
}

template <class... Arguments>
std::wstring formatAll(const wchar_t* pattern, Arguments... arguments) {
    return format(512, pattern, arguments...);
}

}  // namespace

TEST(QMFormatWide, BothStringConversionsTakeAWideString) {
    EXPECT_EQ(L"a/b.c", formatAll(L"%s%S.%s", L"a/", L"b", L"c"));
}

TEST(QMFormatWide, ANullStringIsEmpty) {
    EXPECT_EQ(L"[]", formatAll(L"[%s]", static_cast<const wchar_t*>(nullptr)));
}

TEST(QMFormatWide, WritesIntegersToTheirLimits) {
    EXPECT_EQ(L"0 -1 2147483647 -2147483648", formatAll(L"%d %d %d %d", 0, -1, INT_MAX, INT_MIN));
}

TEST(QMFormatWide, FillsAnIntegerUpToItsWidth) {
    EXPECT_EQ(L"[   7][  -7][12345]", formatAll(L"[%4d][%4d][%4d]", 7, -7, 12345));
}

TEST(QMFormatWide, FillsAnIntegerUpWithZerosBehindItsSign) {
    EXPECT_EQ(L"[07][0007][-007][12345]", formatAll(L"[%02d][%04d][%04d][%04d]", 7, 7, -7, 12345));
}

TEST(QMFormatWide, WritesADoubleWithSixDecimals) {
    EXPECT_EQ(L"0.500000 -1.250000 1000000.000000", formatAll(L"%f %f %f", 0.5, -1.25, 1e6));
}

TEST(QMFormatWide, WritesTheLargestDoubleWhole) {
    const std::wstring text = formatAll(L"%f", -std::numeric_limits<double>::max());
    EXPECT_EQ(1U + 309U + 1U + 6U, text.size());
    EXPECT_EQ(L"-17976931348623157", text.substr(0, 18));
    EXPECT_EQ(L"inf -inf", formatAll(L"%f %f", std::numeric_limits<double>::infinity(),
                                     -std::numeric_limits<double>::infinity()));
}

TEST(QMFormatWide, FillsStringsAndDoublesUpToTheirWidth) {
    EXPECT_EQ(L"[  ab][ 0.500000][-00.500000]", formatAll(L"[%4s][%9f][%010f]", L"ab", 0.5, -0.5));
}

TEST(QMFormatWide, TwoPercentSignsAreOne) {
    EXPECT_EQ(L"100% 5", formatAll(L"%d%% %d", 100, 5));
}

TEST(QMFormatWide, WritesWhatIsNoConversionAsItStandsAndTakesNoArgumentForIt) {
    EXPECT_EQ(L"%x %5u %ld 7", formatAll(L"%x %5u %ld %d", 7));
    EXPECT_EQ(L"7%", formatAll(L"%d%", 7));
    EXPECT_EQ(L"7%03", formatAll(L"%d%03", 7));
}

TEST(QMFormatWide, FillsTheBufferToItsLastCharacter) {
    EXPECT_EQ(L"abcd", format(5, L"%s", L"abcd"));
}

TEST(QMFormatWide, CutsWhatIsOneCharacterTooLong) {
    EXPECT_EQ(L"abcd", format(5, L"%s", L"abcde"));
    EXPECT_EQ(L"abc1", format(5, L"abc%d", 12));
    EXPECT_EQ(L"abcd", format(5, L"abcdefgh"));
}

TEST(QMFormatWide, AHugeWidthFillsTheBufferOnly) {
    EXPECT_EQ(std::wstring(7, L' '), format(8, L"%99999999999999999999d", 1));
    EXPECT_EQ(std::wstring(7, L'0'), format(8, L"%099999999999999999999d", 1));
}

TEST(QMFormatWide, ACapacityOfOneLeavesRoomForTheEndOnly) {
    EXPECT_EQ(L"", format(1, L"%s", L"a"));
}

TEST(QMFormatWide, WritesNothingWithoutABuffer) {
    wchar_t untouched[2] = {L'a', L'b'};
    qm_FormatWide(untouched, 0, L"%d", 1);
    EXPECT_EQ(L'a', untouched[0]);
    qm_FormatWide(nullptr, 2, L"%d", 1);
}

TEST(QMFormatWide, ANullFormatIsEmpty) {
    EXPECT_EQ(L"", format(8, nullptr));
}

TEST(QMFormatWide, KeepsCharactersBeyondAscii) {
    EXPECT_EQ(L"\u00e9\u20ac\U0001F600", formatAll(L"\u00e9%s", L"\u20ac\U0001F600"));
}
