#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>

#include "Pattern/QMSerializable.h"
#include "Tests/QMFramework92/Pattern/LoadedArchive.h"
#include "Tests/Support/LogCapture.h"
#include "Utility/QMString.h"

// Framework strings in an archive.
namespace {

using QMSerialization::Archive;
using testing::ElementsAre;
using wpp_test::bytesOf;
using wpp_test::kOver;
using wpp_test::Loaded;
using wpp_test::LogCapture;

constexpr std::uint32_t kUtf8 = 32;

TEST(ArchiveString, Utf8TextIsCodePageKindAndString) {
    Archive archive;
    archive.write(QMString("ab", kUtf8));
    EXPECT_THAT(bytesOf(archive), ElementsAre(0, 0, 0, 32, 0, 0, 0, 0, 0, 0, 0, 2, 0x61, 0x62));
}

TEST(ArchiveString, NarrowTextOfAnotherCodePageIsWrittenTheSameWay) {
    Archive archive;
    archive.write(QMString("a", 7));
    EXPECT_THAT(bytesOf(archive), ElementsAre(0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0, 1, 0x61));
}

TEST(ArchiveString, WideTextIsCodePageKindAndWideString) {
    Archive archive;
    archive.write(QMString(L"a"));
    EXPECT_THAT(bytesOf(archive), ElementsAre(0, 0, 0, 52, 0, 0, 0, 1, 0, 0, 0, 1, 0x61, 0, 0, 0));
}

TEST(ArchiveString, StringWithoutTextIsItsCodePageAlone) {
    Archive archive;
    archive.write(QMString());
    EXPECT_THAT(bytesOf(archive), ElementsAre(0, 0, 0, 32));
}

TEST(ArchiveString, ReadsBackUtf8Text) {
    Archive archive;
    archive.write(QMString("ab", kUtf8));
    QMString text;
    archive.read(text);
    EXPECT_STREQ(text.ToCHAR(kUtf8), "ab");
}

TEST(ArchiveString, ReadsBackNarrowTextOfAnotherCodePage) {
    Archive archive;
    archive.write(QMString("a", 7));
    QMString text;
    archive.read(text);
    EXPECT_EQ(text.CodePage(), 7U);
    ASSERT_NE(text.NarrowText(), nullptr);
    EXPECT_EQ(*text.NarrowText(), "a");
}

TEST(ArchiveString, ReadsBackWideText) {
    Archive archive;
    archive.write(QMString(L"a\x20AC"));
    QMString text;
    archive.read(text);
    EXPECT_STREQ(text.ToWCHAR(), L"a\x20AC");
}

TEST(ArchiveString, CodePage60IsStoredAs52) {
    Loaded archive{0, 0, 0, 60, 0, 0, 0, 1, 0, 0, 0, 0};
    QMString text;
    archive.read(text);
    EXPECT_EQ(text.CodePage(), 52U);
}

TEST(ArchiveString, UnknownTextKindLeavesNoText) {
    Loaded archive{0, 0, 0, 32, 0, 0, 0, 2, 0, 0, 0, 1, 0x61};
    QMString text("earlier", kUtf8);
    archive.read(text);
    EXPECT_EQ(text.NarrowText(), nullptr);
    EXPECT_EQ(text.WideText(), nullptr);
    EXPECT_EQ(archive.getReadPos(), 8U);
}

TEST(ArchiveString, TextKindThatCannotBeReadLeavesNoText) {
    const LogCapture log;
    Loaded archive{0, 0, 0, 32, 0, 0};
    QMString text("earlier", kUtf8);
    archive.read(text);
    EXPECT_EQ(text.NarrowText(), nullptr);
    EXPECT_EQ(archive.getReadPos(), 4U);
    EXPECT_EQ(log.count(kOver), 1U);
}

TEST(ArchiveString, SixteenBitTextIsItsCodePageAlone) {
    const std::uint16_t units[] = {0x61, 0};
    Archive archive;
    archive.write(QMString(units, 35));
    EXPECT_THAT(bytesOf(archive), ElementsAre(0, 0, 0, 35));
}

}  // namespace
