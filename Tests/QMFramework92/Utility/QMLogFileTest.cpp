#include "Utility/QMLogFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ProcessState.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

constexpr bool kText = false;
constexpr bool kBinary = true;

class QMLogFileTest : public testing::Test {
protected:
    std::wstring directory() const { return home.path().wstring(); }

    /// Opens "trace.txt" or its generations in text mode.
    bool open(std::uint32_t maximumSize, std::int32_t generations) {
        return file.Open(directory().c_str(), L"trace", L"txt", kText, maximumSize, generations);
    }

    bool write(const std::string& text) {
        return file.Write(text.data(), static_cast<std::uint32_t>(text.size()));
    }

    void make(const std::string& name, const std::string& text) { std::ofstream(home.path() / name) << text; }

    std::string textOf(const std::string& name) const {
        std::ifstream in(home.path() / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    std::set<std::string> names() const {
        std::set<std::string> all;
        for (const auto& entry : fs::directory_iterator(home.path())) {
            all.insert(entry.path().filename());
        }
        return all;
    }

    bool has(const std::string& name) const { return names().count(name) != 0; }

    wpp_test::TemporaryDirectory home;
    QMLogFile file;
    wpp_test::LogCapture log;
};

constexpr const char* kTimeNamed = "trace[0-9]{6}_[0-9]{4}\\.txt";

}  // namespace

TEST_F(QMLogFileTest, GenerationCountZeroNamesOneFixedFile) {
    ASSERT_TRUE(open(QMLogFile::kNoLimit, 0));
    EXPECT_TRUE(file.WriteFormat("%s %d\n", "line", 1));
    file.Close();
    EXPECT_THAT(names(), ElementsAre("trace.txt"));
    EXPECT_EQ("line 1\n", textOf("trace.txt"));
}

TEST_F(QMLogFileTest, PathsContainTwoSlashesForADirectoryThatEndsInOne) {
    ASSERT_TRUE(file.Open((directory() + L"/").c_str(), L"trace", L"txt", kText, QMLogFile::kNoLimit,
                          QMLogFile::kNamedByTime));
    EXPECT_EQ(directory() + L"//trace", std::wstring(file.Path()).substr(0, directory().size() + 7));
    ASSERT_TRUE(file.Open((directory() + L"/").c_str(), L"trace", L"txt", kText, QMLogFile::kNoLimit, 0));
    EXPECT_EQ(directory() + L"//trace.txt", file.Path());
}

TEST_F(QMLogFileTest, ADirectoryWithoutASlashGetsOne) {
    ASSERT_TRUE(open(QMLogFile::kNoLimit, 1));
    EXPECT_EQ(directory() + L"/trace_0.txt", file.Path());
}

TEST_F(QMLogFileTest, AFileWithoutALimitIsEmptiedOnOpening) {
    make("trace.txt", "old");
    ASSERT_TRUE(open(QMLogFile::kNoLimit, 0));
    EXPECT_TRUE(write("new"));
    file.Close();
    EXPECT_EQ("new", textOf("trace.txt"));
}

TEST_F(QMLogFileTest, AFileWithALimitIsAppendedTo) {
    make("trace.txt", "old");
    ASSERT_TRUE(open(100, 0));
    EXPECT_TRUE(write("new"));
    file.Close();
    EXPECT_EQ("oldnew", textOf("trace.txt"));
}

TEST_F(QMLogFileTest, BinaryFilesTruncateAndAppendAlike) {
    make("trace.txt", "old");
    ASSERT_TRUE(file.Open(directory().c_str(), L"trace", L"txt", kBinary, 100, 0));
    EXPECT_TRUE(write(std::string("\0\n\xFF", 3)));
    file.Close();
    EXPECT_EQ(std::string("old\0\n\xFF", 6), textOf("trace.txt"));
    ASSERT_TRUE(file.Open(directory().c_str(), L"trace", L"txt", kBinary, QMLogFile::kNoLimit, 0));
    file.Close();
    EXPECT_EQ("", textOf("trace.txt"));
}

TEST_F(QMLogFileTest, GenerationCountTwoMovesEachFileUpAndDeletesTheLast) {
    make("trace_0.txt", "zero");
    make("trace_1.txt", "one");
    make("trace_2.txt", "two");
    ASSERT_TRUE(open(QMLogFile::kNoLimit, 2));
    EXPECT_TRUE(write("new"));
    file.Close();
    EXPECT_THAT(names(), ElementsAre("trace_0.txt", "trace_1.txt", "trace_2.txt"));
    EXPECT_EQ("new", textOf("trace_0.txt"));
    EXPECT_EQ("zero", textOf("trace_1.txt"));
    EXPECT_EQ("one", textOf("trace_2.txt"));
    EXPECT_EQ("", log.text());
}

TEST_F(QMLogFileTest, RotationPassesOverGenerationsThatAreMissing) {
    make("trace_1.txt", "one");
    ASSERT_TRUE(open(QMLogFile::kNoLimit, 3));
    file.Close();
    EXPECT_THAT(names(), ElementsAre("trace_0.txt", "trace_2.txt"));
    EXPECT_EQ("one", textOf("trace_2.txt"));
    EXPECT_EQ("", log.text());
}

TEST_F(QMLogFileTest, OneGenerationKeepsOneOlderFile) {
    for (const char* text : {"first", "second", "third"}) {
        ASSERT_TRUE(open(QMLogFile::kNoLimit, 1));
        EXPECT_TRUE(write(text));
    }
    file.Close();
    EXPECT_THAT(names(), ElementsAre("trace_0.txt", "trace_1.txt"));
    EXPECT_EQ("third", textOf("trace_0.txt"));
    EXPECT_EQ("second", textOf("trace_1.txt"));
}

TEST_F(QMLogFileTest, OpeningWithALimitDoesNotRotate) {
    make("trace_0.txt", "zero");
    ASSERT_TRUE(open(100, 2));
    EXPECT_TRUE(write("+"));
    file.Close();
    EXPECT_THAT(names(), ElementsAre("trace_0.txt"));
    EXPECT_EQ("zero+", textOf("trace_0.txt"));
}

TEST_F(QMLogFileTest, AWriteThatReachesTheLimitGoesIntoANewFile) {
    make("trace_0.txt", "123456");
    ASSERT_TRUE(open(10, 2));
    EXPECT_TRUE(write("abcd"));
    file.Close();
    EXPECT_EQ("abcd", textOf("trace_0.txt"));
    EXPECT_EQ("123456", textOf("trace_1.txt"));
}

TEST_F(QMLogFileTest, AWriteThatStaysOneByteBelowTheLimitDoesNotRotate) {
    make("trace_0.txt", "123456");
    ASSERT_TRUE(open(10, 2));
    EXPECT_TRUE(write("abc"));
    file.Close();
    EXPECT_THAT(names(), ElementsAre("trace_0.txt"));
    EXPECT_EQ("123456abc", textOf("trace_0.txt"));
}

TEST_F(QMLogFileTest, WritesDoNotAddToTheSizeThatIsComparedWithTheLimit) {
    ASSERT_TRUE(open(10, 2));
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(write("12345"));
    }
    file.Close();
    EXPECT_THAT(names(), ElementsAre("trace_0.txt"));
    ASSERT_TRUE(open(10, 2));
    EXPECT_TRUE(write("a"));
    EXPECT_TRUE(write("b"));
    file.Close();
    EXPECT_EQ("ab", textOf("trace_0.txt"));
    EXPECT_EQ("12345123451234512345", textOf("trace_1.txt"));
}

TEST_F(QMLogFileTest, AFullFixedFileIsOpenedAgainAndAppendedTo) {
    make("trace.txt", "123456789");
    ASSERT_TRUE(open(10, 0));
    EXPECT_TRUE(write("a"));
    EXPECT_TRUE(write("b"));
    file.Close();
    EXPECT_EQ("123456789ab", textOf("trace.txt"));
}

TEST_F(QMLogFileTest, AFullFileThatCannotBeOpenedAgainFailsTheWriteAndEveryLaterOne) {
    const fs::path gone = home.path() / "gone";
    fs::create_directory(gone);
    ASSERT_TRUE(file.Open(gone.wstring().c_str(), L"trace", L"txt", kText, 5, 0));
    fs::remove_all(gone);
    EXPECT_FALSE(write("12345"));
    EXPECT_FALSE(file.IsOpen());
    EXPECT_FALSE(write("1"));
}

TEST_F(QMLogFileTest, ANameByTimeShowsDateAndTimeInUtc) {
    ASSERT_TRUE(open(QMLogFile::kNoLimit, QMLogFile::kNamedByTime));
    EXPECT_THAT(names(), ElementsAre(MatchesRegex(kTimeNamed)));
    // Opening may fall on the end of a minute, so the hour before and after count as well.
    const std::time_t now = std::time(nullptr);
    std::set<std::string> expected;
    for (const std::time_t moment : {now - 60, now}) {
        std::array<char, 32> text{};
        std::tm utc{};
        gmtime_r(&moment, &utc);
        std::strftime(text.data(), text.size(), "trace%y%m%d_%H%M.txt", &utc);
        expected.insert(text.data());
    }
    EXPECT_EQ(1U, expected.count(*names().begin()));
}

TEST_F(QMLogFileTest, WithFiveOlderFilesNamedByTimeTheSmallestNameIsDeleted) {
    for (const char* name : {"trace250101_0000.txt", "trace241231_2359.txt", "trace250101_0001.txt",
                             "trace250201_0000.txt", "trace250301_0000.txt"}) {
        make(name, name);
    }
    ASSERT_TRUE(open(QMLogFile::kNoLimit, QMLogFile::kNamedByTime));
    EXPECT_EQ(5U, names().size());
    EXPECT_FALSE(has("trace241231_2359.txt"));
    EXPECT_TRUE(has("trace250101_0000.txt"));
    EXPECT_EQ("", log.text());
}

TEST_F(QMLogFileTest, WithFourOlderFilesNamedByTimeNoneIsDeleted) {
    for (const char* name :
         {"trace250101_0000.txt", "trace241231_2359.txt", "trace250101_0001.txt", "trace250201_0000.txt"}) {
        make(name, name);
    }
    ASSERT_TRUE(open(QMLogFile::kNoLimit, QMLogFile::kNamedByTime));
    EXPECT_EQ(5U, names().size());
    EXPECT_TRUE(has("trace241231_2359.txt"));
}

TEST_F(QMLogFileTest, OfSixOlderFilesNamedByTimeOneIsDeleted) {
    for (char digit = '0'; digit < '6'; ++digit) {
        make(std::string("trace25010") + digit + "_0000.txt", "");
    }
    ASSERT_TRUE(open(QMLogFile::kNoLimit, QMLogFile::kNamedByTime));
    EXPECT_EQ(6U, names().size());
    EXPECT_FALSE(has("trace250100_0000.txt"));
    EXPECT_TRUE(has("trace250101_0000.txt"));
}

TEST_F(QMLogFileTest, FilesOfOtherNamesNeitherCountNorAreDeleted) {
    const std::set<std::string> others = {"trace_0.txt", "trace250101_000.txt", "trace250101_00000.txt",
                                          "a250101_0000.txt", "trace250101_0000.log"};
    for (const std::string& name : others) {
        make(name, "");
    }
    ASSERT_TRUE(open(QMLogFile::kNoLimit, QMLogFile::kNamedByTime));
    EXPECT_EQ(others.size() + 1, names().size());
}

TEST_F(QMLogFileTest, AFileNamedByTimeWithALimitIsAppendedToWithinItsMinute) {
    ASSERT_TRUE(open(5, QMLogFile::kNamedByTime));
    const std::wstring firstPath = file.Path();
    EXPECT_TRUE(write("123"));
    EXPECT_TRUE(write("45678"));
    const bool sameMinute = firstPath == file.Path();
    file.Close();
    EXPECT_EQ(sameMinute ? 1U : 2U, names().size());
    EXPECT_EQ(sameMinute ? "12345678" : "123", textOf(*names().begin()));
}

TEST_F(QMLogFileTest, WritesOnAClosedFileFail) {
    EXPECT_FALSE(write("a"));
    EXPECT_FALSE(write(""));
    EXPECT_FALSE(file.WriteFormat("a"));
    EXPECT_EQ("", log.text());
}

TEST_F(QMLogFileTest, AWriteOfSomeSizeWithoutABufferFails) {
    ASSERT_TRUE(open(QMLogFile::kNoLimit, 0));
    EXPECT_FALSE(file.Write(nullptr, 1));
    file.Close();
    EXPECT_EQ("", textOf("trace.txt"));
}

TEST_F(QMLogFileTest, AnEmptyWriteSucceedsAlsoWithoutABufferAndOnAFullFile) {
    make("trace_0.txt", "12345");
    ASSERT_TRUE(open(5, 2));
    EXPECT_TRUE(file.Write(nullptr, 0));
    EXPECT_TRUE(file.Write("", 0));
    EXPECT_THAT(names(), ElementsAre("trace_0.txt"));
}

TEST_F(QMLogFileTest, AFormattedTextOf255BytesIsWrittenWhole) {
    ASSERT_TRUE(open(QMLogFile::kNoLimit, 0));
    EXPECT_TRUE(file.WriteFormat("%s", std::string(255, 'a').c_str()));
    file.Close();
    EXPECT_EQ(std::string(255, 'a'), textOf("trace.txt"));
}

TEST_F(QMLogFileTest, AFormattedTextOf256BytesIsCutTo255) {
    ASSERT_TRUE(open(QMLogFile::kNoLimit, 0));
    EXPECT_TRUE(file.WriteFormat("%s", std::string(256, 'a').c_str()));
    file.Close();
    EXPECT_EQ(std::string(255, 'a'), textOf("trace.txt"));
}

TEST_F(QMLogFileTest, ABaseNameOf24AndAnExtensionOf4CharactersAreKept) {
    ASSERT_TRUE(file.Open(directory().c_str(), L"123456789012345678901234", L"text", kText, 0, 0));
    EXPECT_THAT(names(), ElementsAre("123456789012345678901234.text"));
}

TEST_F(QMLogFileTest, ALongerBaseNameAndExtensionAreCut) {
    ASSERT_TRUE(file.Open(directory().c_str(), L"1234567890123456789012345", L"texts", kText, 0, 0));
    EXPECT_THAT(names(), ElementsAre("123456789012345678901234.text"));
}

TEST_F(QMLogFileTest, APathOf256CharactersIsKept) {
    const std::wstring room(256 - directory().size() - std::wstring(L"//a.txt").size(), L'd');
    fs::create_directory(fs::path(directory() + L"/" + room));
    ASSERT_TRUE(file.Open((directory() + L"/" + room).c_str(), L"a", L"txt", kText, 0, 0));
    EXPECT_EQ(256U, std::wstring(file.Path()).size());
    EXPECT_TRUE(fs::exists(fs::path(directory() + L"/" + room + L"/a.txt")));
}

TEST_F(QMLogFileTest, APathOf257CharactersLosesItsLast) {
    const std::wstring room(257 - directory().size() - std::wstring(L"//a.txt").size(), L'd');
    fs::create_directory(fs::path(directory() + L"/" + room));
    ASSERT_TRUE(file.Open((directory() + L"/" + room).c_str(), L"a", L"txt", kText, 0, 0));
    EXPECT_EQ(256U, std::wstring(file.Path()).size());
    EXPECT_TRUE(fs::exists(fs::path(directory() + L"/" + room + L"/a.tx")));
}

TEST_F(QMLogFileTest, ALongDirectoryIsCutAndOverrunsNothing) {
    EXPECT_FALSE(file.Open(std::wstring(256, L'd').c_str(), L"a", L"txt", kText, 0, 0));
    EXPECT_FALSE(file.Open(std::wstring(257, L'd').c_str(), L"a", L"txt", kText, 0, 3));
    EXPECT_FALSE(
        file.Open(std::wstring(5000, L'd').c_str(), L"a", L"txt", kText, 0, QMLogFile::kNamedByTime));
}

TEST_F(QMLogFileTest, AFileThatTheCutNameHitsIsNotDeleted) {
    const std::wstring room(250 - directory().size() - 1, L'd');
    const fs::path inside = fs::path(directory() + L"/" + room);
    fs::create_directory(inside);
    for (char digit = '0'; digit < '6'; ++digit) {
        std::ofstream(inside / (std::string("trac") + digit));
    }
    // The pattern of this name would end within its question marks.
    file.Open(inside.wstring().c_str(), L"trac", L"txt", kText, 0, QMLogFile::kNamedByTime);
    for (char digit = '0'; digit < '6'; ++digit) {
        EXPECT_TRUE(fs::exists(inside / (std::string("trac") + digit)));
    }
}

TEST_F(QMLogFileTest, NamesBeyondAsciiAreUtf8OnDisk) {
    ASSERT_TRUE(
        file.Open(directory().c_str(), L"\u00e9 \u20ac\n", L"txt", kText, 0, QMLogFile::kNamedByTime));
    EXPECT_THAT(*names().begin(), MatchesRegex("\xC3\xA9 \xE2\x82\xAC\n[0-9]{6}_[0-9]{4}\\.txt"));
}

TEST_F(QMLogFileTest, OpeningWithoutAText) {
    EXPECT_FALSE(file.Open(nullptr, L"a", L"txt", kText, 0, 0));
    EXPECT_FALSE(file.Open(directory().c_str(), nullptr, L"txt", kText, 0, 0));
    EXPECT_FALSE(file.Open(directory().c_str(), L"a", nullptr, kText, 0, 0));
    EXPECT_FALSE(file.IsOpen());
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(QMLogFileTest, AFileThatCannotBeOpenedFailsEveryWriteAndLogsNothing) {
    for (const std::int32_t generations : {QMLogFile::kNamedByTime, 0, 2}) {
        EXPECT_FALSE(file.Open((directory() + L"/missing").c_str(), L"a", L"txt", kText, 0, generations));
        EXPECT_FALSE(write("a"));
        EXPECT_FALSE(file.WriteFormat("a"));
    }
    EXPECT_EQ("", log.text());
}

TEST_F(QMLogFileTest, OpeningAgainClosesTheFileBefore) {
    ASSERT_TRUE(open(QMLogFile::kNoLimit, 0));
    EXPECT_TRUE(write("first"));
    ASSERT_TRUE(file.Open(directory().c_str(), L"other", L"txt", kText, 0, 0));
    EXPECT_EQ("first", textOf("trace.txt"));
    file.Close();
    EXPECT_THAT(names(), ElementsAre("other.txt", "trace.txt"));
}

TEST_F(QMLogFileTest, AFailedOpeningLeavesTheFileBeforeClosed) {
    ASSERT_TRUE(open(QMLogFile::kNoLimit, 0));
    EXPECT_FALSE(file.Open(nullptr, L"a", L"txt", kText, 0, 0));
    EXPECT_FALSE(write("a"));
}

TEST_F(QMLogFileTest, ClosingTwiceIsHarmless) {
    ASSERT_TRUE(open(QMLogFile::kNoLimit, 0));
    file.Close();
    file.Close();
    EXPECT_FALSE(file.IsOpen());
}

TEST_F(QMLogFileTest, TheEndOfTheObjectClosesTheFile) {
    const auto before = wpp_test::openDescriptors();
    {
        QMLogFile other;
        ASSERT_TRUE(other.Open(directory().c_str(), L"other", L"txt", kText, 0, 0));
        EXPECT_TRUE(other.WriteFormat("written"));
    }
    EXPECT_EQ("written", textOf("other.txt"));
    EXPECT_EQ(before, wpp_test::openDescriptors());
}

TEST_F(QMLogFileTest, AFullDiskFailsTheWrite) {
    fs::create_symlink("/dev/full", home.path() / "trace.txt");
    ASSERT_TRUE(open(QMLogFile::kNoLimit, 0));
    // More than the stream keeps back.
    EXPECT_FALSE(write(std::string(1U << 20U, 'a')));
}

TEST_F(QMLogFileTest, AGenerationThatIsADirectoryStaysWhereItIs) {
    fs::create_directory(home.path() / "trace_1.txt");
    make("trace_0.txt", "zero");
    ASSERT_TRUE(open(QMLogFile::kNoLimit, 1));
    EXPECT_TRUE(fs::is_directory(home.path() / "trace_1.txt"));
    EXPECT_TRUE(log.contains("is already exist."));
}
