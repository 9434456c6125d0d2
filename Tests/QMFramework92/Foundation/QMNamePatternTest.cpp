#include "Foundation/private/QMNamePattern.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "Tests/Support/Deadline.h"

namespace {

using wpp_test::Stopwatch;

bool matches(const std::string& name, const std::string& pattern) {
    return qm_MatchesPattern(name.c_str(), pattern.c_str());
}

/// The rule as it is told, for texts of one-byte characters.
bool matchesByTheRule(const std::string& name, const std::string& pattern) {
    if (pattern.empty()) {
        return name.empty();
    }
    if (pattern[0] == '*') {
        for (std::size_t run = 0; run <= name.size(); ++run) {
            if (matchesByTheRule(name.substr(run), pattern.substr(1))) {
                return true;
            }
        }
        return false;
    }
    return !name.empty() && (pattern[0] == '?' || pattern[0] == name[0]) &&
           matchesByTheRule(name.substr(1), pattern.substr(1));
}

TEST(QMNamePattern, FourQuestionMarksWantFourCharacters) {
    EXPECT_TRUE(matches("log_0001.txt", "log_????.txt"));
    EXPECT_FALSE(matches("log_1.txt", "log_????.txt"));
    EXPECT_FALSE(matches("log_00001.txt", "log_????.txt"));
}

TEST(QMNamePattern, AStarStandsForAnyRun) {
    EXPECT_TRUE(matches("", "*"));
    EXPECT_TRUE(matches("a.txt", "*"));
    EXPECT_TRUE(matches("a.txt", "*.txt"));
    EXPECT_TRUE(matches(".txt", "*.txt"));
    EXPECT_TRUE(matches("a.txt.txt", "*.txt"));
    EXPECT_FALSE(matches("a.txt~", "*.txt"));
    EXPECT_TRUE(matches("abc", "a**c"));
}

TEST(QMNamePattern, ALaterPlaceForAStarIsTriedToo) {
    EXPECT_TRUE(matches("abcabd", "*abd"));
    EXPECT_TRUE(matches("mississippi", "m*iss*ip*i"));
    EXPECT_FALSE(matches("mississippi", "m*iss*ipx"));
}

TEST(QMNamePattern, CaseCounts) {
    EXPECT_FALSE(matches("LOG", "log"));
    EXPECT_FALSE(matches("log", "L*"));
}

TEST(QMNamePattern, AnEmptyPatternMatchesAnEmptyNameOnly) {
    EXPECT_TRUE(matches("", ""));
    EXPECT_FALSE(matches("a", ""));
    EXPECT_FALSE(matches("", "?"));
    EXPECT_FALSE(matches("", "a"));
}

TEST(QMNamePattern, AQuestionMarkTakesAWholeCharacter) {
    EXPECT_TRUE(matches("\xC3\xA9", "?"));
    EXPECT_FALSE(matches("\xC3\xA9", "??"));
    EXPECT_FALSE(matches("\xC3\xA9", "*??"));
    EXPECT_TRUE(matches("a\xE2\x82\xAC\xF0\x9F\x98\x80z", "a??z"));
    EXPECT_TRUE(matches("\xE2\x82\xAC", "\xE2\x82\xAC"));
}

TEST(QMNamePattern, APatternMatchesWholeCharactersOnly) {
    EXPECT_FALSE(matches("\xC3\xA9", "\xC3*"));
    EXPECT_FALSE(matches("\xC3\xA9", "*\xA9"));
    EXPECT_FALSE(matches("\xC3\xA9", "\xC3?"));
    EXPECT_TRUE(matches("\xC3", "\xC3*"));
    EXPECT_FALSE(matches("\xC3", "\xC3\xA9"));
}

TEST(QMNamePattern, EachByteOfABrokenSequenceCountsAsOne) {
    EXPECT_TRUE(matches("\xE2\x82z", "???"));
    EXPECT_FALSE(matches("\xE2\x82z", "??"));
    EXPECT_TRUE(matches("\xFF\x82", "??"));
    EXPECT_TRUE(matches("\xFF\x82", "\xFF*"));
    EXPECT_TRUE(matches("\xC0\x80", "??"));
}

TEST(QMNamePattern, AByteThatIsNoCharacterCountsAsOne) {
    EXPECT_TRUE(matches("\x82", "?"));
    EXPECT_TRUE(matches("a\x82", "a?"));
    EXPECT_TRUE(matches("\xE2", "?"));
    EXPECT_TRUE(matches("\xE2z", "??"));
    EXPECT_TRUE(matches("\xF0\x9F", "*"));
}

TEST(QMNamePattern, SpecialCharactersOfANameArePlain) {
    EXPECT_TRUE(matches("a*b", "a*b"));
    EXPECT_TRUE(matches("what?", "what?"));
    EXPECT_FALSE(matches("*", "a"));
    EXPECT_FALSE(matches("?", "a"));
    EXPECT_TRUE(matches("two\nlines", "two*lines"));
    EXPECT_TRUE(matches("[a]", "[a]"));
    EXPECT_FALSE(matches("a", "[a]"));
    EXPECT_TRUE(matches("\\", "\\"));
}

TEST(QMNamePattern, AnyShortNameAndPatternAgreeWithTheRule) {
    std::mt19937 random(7);
    const auto text = [&random](const std::string& letters, std::size_t longest) {
        std::string made(random() % (longest + 1), ' ');
        for (char& c : made) {
            c = letters[random() % letters.size()];
        }
        return made;
    };
    for (int i = 0; i < 20000; ++i) {
        const std::string name = text("ab", 8);
        const std::string pattern = text("ab*?", 7);
        ASSERT_EQ(matches(name, pattern), matchesByTheRule(name, pattern)) << name << " " << pattern;
    }
}

TEST(QMNamePattern, ManyStarsDoNotMultiplyTheTime) {
    std::string pattern;
    for (int i = 0; i < 1000; ++i) {
        pattern += "*a";
    }
    const std::string name(4000, 'a');
    const Stopwatch watch;
    EXPECT_FALSE(matches(name, pattern + "*b"));
    EXPECT_TRUE(matches(name, pattern));
    EXPECT_LT(watch.elapsed(), wpp_test::kGenerousLimit);
}

TEST(QMNamePattern, HiddenNamesStartWithADotOrEndInCHK) {
    for (const char* name : {".DS_Store", "._a", ".git", ".", "FILE0000.CHK", "a.b.CHK", ".CHK"}) {
        EXPECT_TRUE(qm_IsHiddenName(name)) << name;
    }
    for (const char* name : {"a", "a.git", "CHK", "FILE0000.chk", "FILE0000.CHKS", "a.CHK.txt", "aCHK", ""}) {
        EXPECT_FALSE(qm_IsHiddenName(name)) << name;
    }
}

}  // namespace
