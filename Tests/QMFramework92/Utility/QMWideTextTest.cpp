#include "Utility/QMWideText.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {

struct Encoded {
    bool whole;
    std::string text;
};

Encoded encode(const wchar_t* text, std::size_t capacity) {
    // Behind the capacity lies a byte that must not change.
    std::string out(capacity + 1, '#');
    const bool whole = qm_EncodeUtf8(text, out.data(), capacity);
    EXPECT_EQ('#', out.back());
    return {whole, capacity == 0 ? "" : out.c_str()};
}

}  // namespace

TEST(QMWideText, EncodesCharactersOfEachLength) {
    const Encoded encoded = encode(L"a\u00e9\u20ac\U0001F600", 64);
    EXPECT_TRUE(encoded.whole);
    EXPECT_EQ("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", encoded.text);
}

TEST(QMWideText, EncodesTheFirstAndLastCharacterOfEachLength) {
    EXPECT_EQ("\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
              encode(L"\x7F\x80\x7FF\x800\xFFFF\x10000\x10FFFF", 64).text);
}

TEST(QMWideText, FillsTheBufferToItsLastByte) {
    EXPECT_TRUE(encode(L"abc", 4).whole);
    EXPECT_EQ("abc", encode(L"abc", 4).text);
}

TEST(QMWideText, CutsTextThatIsOneByteTooLong) {
    EXPECT_FALSE(encode(L"abc", 3).whole);
    EXPECT_EQ("ab", encode(L"abc", 3).text);
}

TEST(QMWideText, CutsAtAWholeCharacter) {
    EXPECT_EQ("a\xC3\xA9", encode(L"a\u00e9\u00e9", 5).text);
    EXPECT_EQ("", encode(L"\U0001F600", 4).text);
    EXPECT_EQ("\xF0\x9F\x98\x80", encode(L"\U0001F600", 5).text);
}

TEST(QMWideText, ReplacesUnitsThatAreNoCharacter) {
    const std::array<wchar_t, 5> text{{static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0xDFFF),
                                       static_cast<wchar_t>(0x110000), static_cast<wchar_t>(0xFFFFFFFFU),
                                       L'\0'}};
    EXPECT_EQ("\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD", encode(text.data(), 64).text);
}

TEST(QMWideText, AnEmptyTextFitsIntoOneByte) {
    EXPECT_TRUE(encode(L"", 1).whole);
    EXPECT_EQ("", encode(L"", 1).text);
}

TEST(QMWideText, ANullTextIsReportedAndGivesAnEmptyOne) {
    EXPECT_FALSE(encode(nullptr, 8).whole);
    EXPECT_EQ("", encode(nullptr, 8).text);
}

TEST(QMWideText, WritesNothingIntoNoRoom) {
    EXPECT_FALSE(encode(L"a", 0).whole);
    EXPECT_FALSE(encode(L"", 0).whole);
}
