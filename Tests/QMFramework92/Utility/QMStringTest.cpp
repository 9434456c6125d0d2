#include "Utility/QMString.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Tests/Support/LogCapture.h"

namespace {

using wpp_test::LogCapture;

constexpr std::uint16_t kUnits[] = {'a', 'b', 0};
constexpr std::uint16_t kNoUnits[] = {0};

/// The messages of the lines so far, without what comes before them.
std::vector<std::string> messages(const LogCapture& log) {
    std::vector<std::string> found;
    for (const std::string& line : log.lines()) {
        const std::string separator = "{} : ";
        found.push_back(line.substr(line.find(separator) + separator.size()));
    }
    return found;
}

using Messages = std::vector<std::string>;

TEST(QMString, Utf8TextComesBackInItsCodePage) {
    QMString string("abc", 32);
    EXPECT_STREQ(string.ToCHAR(32), "abc");
}

TEST(QMString, Utf8TextInAnotherCodePageIsRefused) {
    LogCapture log;
    QMString string("abc", 32);
    EXPECT_EQ(string.ToCHAR(33), nullptr);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].rfind("[error] ToCHAR()@QMString(", 0), 0U);
    EXPECT_EQ(messages(log), Messages{"faild to convert ret[0]"});
    EXPECT_STREQ(string.ToCHAR(32), "abc");
}

TEST(QMString, EmptyUtf8TextSuitsEveryCodePage) {
    LogCapture log;
    QMString string("", 32);
    EXPECT_STREQ(string.ToCHAR(33), "");
    EXPECT_STREQ(string.ToCHAR(52), "");
    EXPECT_EQ(log.text(), "");
}

TEST(QMString, NarrowTextIsNeverConverted) {
    LogCapture log;
    QMString string("abc", 33);
    EXPECT_EQ(string.ToCHAR(52), nullptr);
    EXPECT_EQ(string.ToCHAR(32), nullptr);
    EXPECT_EQ(string.ToCHAR(33), nullptr);
    EXPECT_EQ(messages(log), (Messages{"invalid code page", "faild to convert", "faild to convert"}));
}

TEST(QMString, EmptyNarrowTextBecomesAnEmptyUtf8Text) {
    LogCapture log;
    QMString string("", 33);
    EXPECT_EQ(string.ToCHAR(52), nullptr);
    EXPECT_EQ(messages(log), Messages{"invalid code page"});
    EXPECT_STREQ(string.ToCHAR(33), "");
    EXPECT_STREQ(string.ToCHAR(52), "");
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST(QMString, WideTextAsNarrowTextIsRefused) {
    LogCapture log;
    QMString string(L"abc");
    EXPECT_EQ(string.ToCHAR(32), nullptr);
    EXPECT_EQ(string.ToCHAR(33), nullptr);
    EXPECT_EQ(string.ToCHAR(52), nullptr);
    EXPECT_EQ(messages(log), (Messages{"faild to convert", "not support for now.", "invalid code page"}));
}

TEST(QMString, EmptyWideTextAsUtf8IsEmpty) {
    LogCapture log;
    QMString string(L"");
    EXPECT_STREQ(string.ToCHAR(32), "");
    EXPECT_EQ(log.text(), "");
}

TEST(QMString, EmptyWideTextInAnotherCodePageIsRefused) {
    LogCapture log;
    QMString string(L"");
    EXPECT_EQ(string.ToCHAR(33), nullptr);
    EXPECT_EQ(messages(log), Messages{"not support for now."});
}

TEST(QMString, StringWithoutTextHasNoForm) {
    LogCapture log;
    QMString string;
    EXPECT_EQ(string.ToCHAR(32), nullptr);
    EXPECT_EQ(string.ToWCHAR(), nullptr);
    EXPECT_EQ(string.Length(), 0U);
    EXPECT_EQ(log.text(), "");
}

TEST(QMString, WideTextComesBackWide) {
    QMString string(L"abc");
    EXPECT_STREQ(string.ToWCHAR(), L"abc");
}

TEST(QMString, NarrowAndUtf8TextAsWideTextIsRefused) {
    LogCapture log;
    QMString utf8("abc", 32);
    QMString narrow("abc", 33);
    EXPECT_EQ(utf8.ToWCHAR(), nullptr);
    EXPECT_EQ(narrow.ToWCHAR(), nullptr);
    EXPECT_EQ(messages(log), (Messages{"faild to convert", "faild to convert"}));
}

TEST(QMString, EmptyUtf8TextAsWideTextIsEmpty) {
    LogCapture log;
    QMString string("", 32);
    EXPECT_STREQ(string.ToWCHAR(), L"");
    EXPECT_STREQ(string.ToCHAR(32), "");
    EXPECT_EQ(log.text(), "");
}

TEST(QMString, NarrowTextThatClaimsToBeWideIsRefusedAsWide) {
    LogCapture log;
    QMString string("abc", 52);
    EXPECT_EQ(string.ToWCHAR(), nullptr);
    EXPECT_EQ(messages(log), Messages{"unknown code page"});
}

TEST(QMString, CodePage52WithoutTextIsRefusedAsWide) {
    LogCapture log;
    QMString string;
    string.Restore(52);
    EXPECT_EQ(string.ToWCHAR(), nullptr);
    EXPECT_EQ(messages(log), Messages{"unknown code page"});
}

TEST(QMString, SixteenBitTextAsWideTextIsRefused) {
    LogCapture log;
    QMString string(kUnits, 35);
    EXPECT_EQ(string.ToWCHAR(), nullptr);
    EXPECT_EQ(messages(log), Messages{"not support for now."});
}

TEST(QMString, SixteenBitTextOfCodePages35And36IsAccepted) {
    LogCapture log;
    EXPECT_EQ(QMString(kUnits, 35).Length(), 2U);
    EXPECT_EQ(QMString(kUnits, 36).Length(), 2U);
    EXPECT_EQ(log.text(), "");
}

TEST(QMString, SixteenBitTextOfCodePage34IsNotSupported) {
    LogCapture log;
    QMString string(kUnits, 34);
    EXPECT_EQ(messages(log), (Messages{"not support for now.", "error"}));
    EXPECT_EQ(string.Length(), 0U);
}

TEST(QMString, SixteenBitTextOfAnyOtherCodePageIsInvalid) {
    LogCapture log;
    QMString string(kUnits, 32);
    EXPECT_EQ(messages(log), (Messages{"invalid param.", "error"}));
    EXPECT_EQ(string.Length(), 0U);
}

TEST(QMString, EmptySixteenBitTextAsUtf8IsEmpty) {
    QMString string(kNoUnits, 36);
    EXPECT_STREQ(string.ToCHAR(32), "");
}

TEST(QMString, CopyTakesSixteenBitTextOrLeavesTheStringAlone) {
    LogCapture log;
    QMString string("abc", 32);
    EXPECT_FALSE(string.Copy(kUnits, 34));
    EXPECT_FALSE(string.Copy(nullptr, 35));
    EXPECT_STREQ(string.ToCHAR(32), "abc");
    EXPECT_TRUE(string.Copy(kUnits, 35));
    EXPECT_EQ(string.Length(), 2U);
    EXPECT_EQ(messages(log), (Messages{"not support for now.", "invalid param."}));
}

TEST(QMString, NullTextIsReportedAndLeavesAStringWithoutText) {
    LogCapture log;
    QMString narrow(static_cast<const char*>(nullptr), 32);
    QMString wide(static_cast<const wchar_t*>(nullptr));
    EXPECT_EQ(log.count("[error] QMString()@QMString("), 2U);
    EXPECT_EQ(messages(log), (Messages{"error", "error"}));
    EXPECT_EQ(narrow.ToCHAR(32), nullptr);
    EXPECT_EQ(wide.ToWCHAR(), nullptr);
}

TEST(QMString, LengthOfUtf8TextCountsCharacters) {
    EXPECT_EQ(QMString("\xC3\xA9"
                       "a",
                       32)
                  .Length(),
              2U);
    EXPECT_EQ(QMString("\xF0\x9F\x98\x80", 32).Length(), 1U);
    EXPECT_EQ(QMString("", 32).Length(), 0U);
}

TEST(QMString, LengthOfOtherTextCountsBytesOrUnits) {
    EXPECT_EQ(QMString("\xC3\xA9"
                       "a",
                       33)
                  .Length(),
              3U);
    EXPECT_EQ(QMString(L"wide").Length(), 4U);
}

TEST(QMString, LengthOfAnEmptyTextThatMovedToUtf8IsUnderConstruction) {
    LogCapture log;
    QMString string("", 33);
    EXPECT_STREQ(string.ToCHAR(33), "");
    EXPECT_EQ(string.Length(), 0U);
    EXPECT_EQ(messages(log), Messages{"sorry, now under construction..."});
}

TEST(QMString, LastIndexOfSearchesFromTheEnd) {
    const QMString string("a/b/c", 32);
    EXPECT_EQ(string.LastIndexOf("/", 0xFFFFFFFFU), 3);
    EXPECT_EQ(string.LastIndexOf("b/", QMString::kFromEnd), 2);
}

TEST(QMString, LastIndexOfFindsAStartAtTheGivenPosition) {
    const QMString string("a/b/c", 32);
    EXPECT_EQ(string.LastIndexOf("/", 3), 3);
    EXPECT_EQ(string.LastIndexOf("/", 2), 1);
    EXPECT_EQ(string.LastIndexOf("/", 0), -1);
}

TEST(QMString, LastIndexOfBeyondTheLengthFindsNothing) {
    const QMString string("a/b/c", 32);
    EXPECT_EQ(string.LastIndexOf("/", 5), 3);
    EXPECT_EQ(string.LastIndexOf("/", 6), -1);
}

TEST(QMString, LastIndexOfBoundsInCharactersAndSearchesInBytes) {
    // Five characters in seven bytes: from the end means from byte 5, so the slash at byte 6 is out of reach.
    const QMString string("\xC3\xA9\xC3\xA9/a/", 32);
    ASSERT_EQ(string.Length(), 5U);
    EXPECT_EQ(string.LastIndexOf("/", QMString::kFromEnd), 4);
    EXPECT_EQ(string.LastIndexOf("/", 6), -1);
}

TEST(QMString, LastIndexOfNothingFindsNothing) {
    LogCapture log;
    const QMString string("abc", 32);
    EXPECT_EQ(string.LastIndexOf(nullptr, QMString::kFromEnd), -1);
    EXPECT_EQ(string.LastIndexOf("", QMString::kFromEnd), -1);
    EXPECT_EQ(log.text(), "");
}

TEST(QMString, LastIndexOfSearchesUtf8TextOnly) {
    LogCapture log;
    EXPECT_EQ(QMString("a/b", 33).LastIndexOf("/", QMString::kFromEnd), -1);
    EXPECT_EQ(QMString(L"a/b").LastIndexOf("/", QMString::kFromEnd), -1);
    EXPECT_EQ(messages(log), (Messages{"not support for now.", "not support for now."}));
}

TEST(QMString, SubStrTakesCountBytesFromStart) {
    const QMString string("abcdef", 32);
    EXPECT_STREQ(string.SubStr(2, 3).ToCHAR(32), "cde");
    EXPECT_STREQ(string.SubStr(4, 100).ToCHAR(32), "ef");
    EXPECT_STREQ(string.SubStr(6, 1).ToCHAR(32), "");
}

TEST(QMString, SubStrBeyondTheTextIsReported) {
    LogCapture log;
    EXPECT_EQ(QMString("abc", 32).SubStr(4, 1).ToCHAR(32), nullptr);
    EXPECT_EQ(messages(log), Messages{"error"});
}

TEST(QMString, SubStrOfAnEmptyStringIsReported) {
    LogCapture log;
    EXPECT_EQ(QMString().SubStr(0, 1).ToCHAR(32), nullptr);
    EXPECT_EQ(QMString("", 32).SubStr(0, 1).ToCHAR(32), nullptr);
    EXPECT_EQ(messages(log), (Messages{"no string", "no string"}));
}

TEST(QMString, SubStrOfOtherTextIsNotSupported) {
    LogCapture log;
    EXPECT_EQ(QMString("abc", 33).SubStr(0, 1).ToCHAR(32), nullptr);
    EXPECT_EQ(QMString(L"abc").SubStr(0, 1).ToCHAR(32), nullptr);
    EXPECT_EQ(messages(log), (Messages{"not support for now.", "not support for now."}));
}

TEST(QMString, AppendAddsBehindAndAppendToHeadInFront) {
    QMString string("b", 32);
    EXPECT_TRUE(string.Append(QMString("c", 32)));
    EXPECT_TRUE(string.AppendToHead(QMString("a", 32)));
    EXPECT_STREQ(string.ToCHAR(32), "abc");
}

TEST(QMString, AppendOfItselfDoublesTheText) {
    QMString string("ab", 32);
    EXPECT_TRUE(string.Append(string));
    EXPECT_STREQ(string.ToCHAR(32), "abab");
}

TEST(QMString, AppendToAStringWithoutTextTakesTheOther) {
    QMString string;
    EXPECT_TRUE(string.Append(QMString("abc", 32)));
    EXPECT_STREQ(string.ToCHAR(32), "abc");
}

TEST(QMString, AppendToAStringWithoutTextTakesTheOthersCodePageToo) {
    LogCapture log;
    QMString string;
    string.Restore(52);
    EXPECT_TRUE(string.AppendToHead(QMString("abc", 32)));
    EXPECT_STREQ(string.ToCHAR(32), "abc");
    EXPECT_EQ(string.Length(), 3U);
    EXPECT_EQ(log.text(), "");
}

TEST(QMString, AppendOfNoTextIsReported) {
    LogCapture log;
    QMString string("abc", 32);
    EXPECT_FALSE(string.Append(QMString()));
    EXPECT_FALSE(string.AppendToHead(QMString()));
    EXPECT_EQ(log.count("[error] Append()@QMString("), 1U);
    EXPECT_EQ(log.count("[error] AppendToHead()@QMString("), 1U);
    EXPECT_EQ(messages(log), (Messages{"no string in param", "no string in param"}));
    EXPECT_STREQ(string.ToCHAR(32), "abc");
}

TEST(QMString, AppendOfOrToOtherTextIsNotSupported) {
    LogCapture log;
    QMString utf8("abc", 32);
    QMString narrow("abc", 33);
    EXPECT_FALSE(utf8.Append(narrow));
    EXPECT_FALSE(narrow.Append(utf8));
    EXPECT_EQ(messages(log), (Messages{"not support for now.", "not support for now."}));
    EXPECT_STREQ(utf8.ToCHAR(32), "abc");
}

TEST(QMString, AssignmentTakesNarrowWideAndFrameworkStrings) {
    QMString string;
    string = "abc";
    EXPECT_STREQ(string.ToCHAR(32), "abc");
    string = L"wide";
    EXPECT_STREQ(string.ToWCHAR(), L"wide");
    const QMString other("other", 32);
    string = other;
    EXPECT_STREQ(string.ToCHAR(32), "other");
}

TEST(QMString, AssignmentOfItsOwnTextKeepsIt) {
    QMString string("a text that is too long to lie inside the string", 32);
    string = string.ToCHAR(32);
    EXPECT_STREQ(string.ToCHAR(32), "a text that is too long to lie inside the string");
}

TEST(QMString, AssignmentOfNullIsReportedAndChangesNothing) {
    LogCapture log;
    QMString string("abc", 32);
    string = static_cast<const char*>(nullptr);
    string = static_cast<const wchar_t*>(nullptr);
    EXPECT_EQ(messages(log), (Messages{"error", "error"}));
    EXPECT_STREQ(string.ToCHAR(32), "abc");
}

TEST(QMString, ConcatenationJoinsNarrowAndFrameworkStrings) {
    QMString string = QMString("a", 32) + "b" + QMString("c", 32);
    string += "d";
    string += QMString("e", 32);
    EXPECT_STREQ(string.ToCHAR(32), "abcde");
}

TEST(QMString, ConcatenationOfWideTextToUtf8IsReportedAndChangesNothing) {
    LogCapture log;
    QMString string("a", 32);
    string += L"b";
    EXPECT_EQ(messages(log), (Messages{"not support for now.", "error"}));
    EXPECT_STREQ((string + L"b").ToCHAR(32), "a");
}

TEST(QMString, ConcatenationOfNullIsReported) {
    LogCapture log;
    QMString string("a", 32);
    string += static_cast<const char*>(nullptr);
    EXPECT_EQ(messages(log), (Messages{"error", "no string in param", "error"}));
    EXPECT_STREQ(string.ToCHAR(32), "a");
}

TEST(QMString, CopyIsIndependent) {
    QMString original("abc", 32);
    QMString copy = original;
    original += "d";
    EXPECT_STREQ(copy.ToCHAR(32), "abc");
}

}  // namespace
