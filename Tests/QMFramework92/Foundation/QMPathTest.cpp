#include "Foundation/QMPath.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "Tests/Support/LogCapture.h"
#include "Utility/QMString.h"

namespace {

using wpp_test::LogCapture;

TEST(QMPath, NarrowTextIsUsedAsItIs) {
    const char* const text = "/a/\xC3\xA9";
    const QMPath path(text);
    EXPECT_EQ(path.get(), text);
    EXPECT_FALSE(path.isEmpty());
}

TEST(QMPath, NullOfAnyKindIsANullPath) {
    EXPECT_EQ(QMPath(nullptr).get(), nullptr);
    EXPECT_EQ(QMPath(static_cast<const char*>(nullptr)).get(), nullptr);
    EXPECT_EQ(QMPath(static_cast<const wchar_t*>(nullptr)).get(), nullptr);
    QMString none;
    EXPECT_EQ(QMPath(none).get(), nullptr);
    EXPECT_TRUE(QMPath(nullptr).isEmpty());
}

TEST(QMPath, AnEmptyTextIsAnEmptyPath) {
    QMString empty("", QM_CODE_PAGE_UTF8);
    for (const char* text : {QMPath("").get(), QMPath(empty).get()}) {
        EXPECT_STREQ(text, "");
    }
    const QMPath wide(L"");
    EXPECT_STREQ(wide.get(), "");
    EXPECT_TRUE(wide.isEmpty());
}

TEST(QMPath, WideTextIsEncoded) {
    const QMPath path(L"/a/\u00e9\u20ac");
    EXPECT_STREQ(path.get(), "/a/\xC3\xA9\xE2\x82\xAC");
}

TEST(QMPath, WideTextThatJustFitsIsWhole) {
    const std::wstring longest(PATH_MAX - 1, L'a');
    const QMPath path(longest.c_str());
    ASSERT_NE(path.get(), nullptr);
    EXPECT_EQ(std::string(path.get()), std::string(PATH_MAX - 1, 'a'));
}

TEST(QMPath, WideTextThatDoesNotFitIsANullPath) {
    const std::wstring letters(PATH_MAX, L'a');
    EXPECT_EQ(QMPath(letters.c_str()).get(), nullptr);
    const std::wstring accents = std::wstring(PATH_MAX - 2, L'a') + L'\u00e9';
    EXPECT_EQ(QMPath(accents.c_str()).get(), nullptr);
}

TEST(QMPath, AFrameworkStringGivesItsUtf8Text) {
    QMString text("/a/\xC3\xA9", QM_CODE_PAGE_UTF8);
    EXPECT_STREQ(QMPath(text).get(), "/a/\xC3\xA9");
}

TEST(QMPath, AFrameworkStringOfAnotherCodePageLogsItselfAndIsANullPath) {
    const LogCapture log;
    QMString narrow("/a", 33);
    QMString wide(L"/a");
    EXPECT_EQ(QMPath(narrow).get(), nullptr);
    EXPECT_EQ(QMPath(wide).get(), nullptr);
    EXPECT_EQ(log.count("ToCHAR()"), 2U);
    EXPECT_EQ(log.count("faild to convert"), 2U);
}

}  // namespace
