#include "Pattern/QMSerializable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "Tests/QMFramework92/Pattern/LoadedArchive.h"
#include "Tests/Support/LogCapture.h"

namespace {

using QMSerialization::Archive;
using QMSerialization::QMSerializable;
using testing::ElementsAre;
using testing::IsEmpty;
using wpp_test::bytesOf;
using wpp_test::kOver;
using wpp_test::Loaded;
using wpp_test::LogCapture;

/// What came of one read: the value, the cursor and how often "buffer size over!" was logged.
template <class T>
struct Outcome {
    T value;
    std::uint32_t cursor;
    std::size_t complaints;
};

template <class T>
Outcome<T> readOf(Archive& archive, T start = T{}) {
    const LogCapture log;
    archive.read(start);
    return {start, archive.getReadPos(), log.count(kOver)};
}

/// A nested object of one 16-bit number; it remembers what it was handed.
class Pair : public QMSerializable {
public:
    bool serialize() override {
        archive.clear();
        archive.write(number);
        return true;
    }
    bool deserialize(const void* data, unsigned length) override {
        handed = length;
        archive.clear();
        archive.write(data, static_cast<int>(length));
        archive.read(number);
        return true;
    }

    std::uint16_t number = 0;
    unsigned handed = 99;
};

TEST(Archive, StartsEmpty) {
    const Archive archive;
    EXPECT_EQ(archive.getSize(), 0U);
    EXPECT_EQ(archive.getReadPos(), 0U);
    EXPECT_EQ(archive.getRemaining(), 0U);
}

TEST(Archive, MessageBelow1024BytesNeverReallocates) {
    Archive archive;
    archive.write(true);
    const std::uint8_t* first = archive.getBuffer();
    for (int i = 1; i < 1024; ++i) {
        archive.write(true);
    }
    EXPECT_EQ(archive.getBuffer(), first);
}

TEST(Archive, CapacityIsReserved) {
    Archive archive(5000);
    archive.write(true);
    const std::uint8_t* first = archive.getBuffer();
    for (int i = 1; i < 5000; ++i) {
        archive.write(true);
    }
    EXPECT_EQ(archive.getBuffer(), first);
}

TEST(Archive, ClearEmptiesAndRewinds) {
    Loaded archive{1, 2, 3};
    unsigned char byte = 0;
    archive.read(byte);
    archive.clear();
    EXPECT_EQ(archive.getSize(), 0U);
    EXPECT_EQ(archive.getReadPos(), 0U);
}

TEST(Archive, WritesBoolsAsOneAndZero) {
    Archive archive;
    archive.write(true);
    archive.write(false);
    EXPECT_THAT(bytesOf(archive), ElementsAre(1, 0));
}

TEST(Archive, WritesEveryKindOfByteAsItIs) {
    Archive archive;
    archive.write('a');
    archive.write(static_cast<signed char>(-1));
    archive.write(static_cast<unsigned char>(0x80));
    EXPECT_THAT(bytesOf(archive), ElementsAre(0x61, 0xFF, 0x80));
}

TEST(Archive, Writes16BitsBigEndian) {
    Archive archive;
    archive.write(std::uint16_t{0x0102});
    archive.write(std::int16_t{-2});
    EXPECT_THAT(bytesOf(archive), ElementsAre(0x01, 0x02, 0xFF, 0xFE));
}

TEST(Archive, Writes32BitsBigEndian) {
    Archive archive;
    archive.write(std::uint32_t{0x01020304});
    archive.write(std::int32_t{-2});
    EXPECT_THAT(bytesOf(archive), ElementsAre(1, 2, 3, 4, 0xFF, 0xFF, 0xFF, 0xFE));
}

TEST(Archive, Writes64BitsHighHalfFirst) {
    Archive archive;
    archive.write(std::uint64_t{0x0102030405060708});
    archive.write(std::int64_t{-2});
    EXPECT_THAT(bytesOf(archive),
                ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE));
}

TEST(Archive, WritesFloatInHostOrder) {
    Archive archive;
    archive.write(1.0F);
    EXPECT_THAT(bytesOf(archive), ElementsAre(0x00, 0x00, 0x80, 0x3F));
}

TEST(Archive, WritesDoubleInHostOrder) {
    Archive archive;
    archive.write(1.0);
    EXPECT_THAT(bytesOf(archive), ElementsAre(0, 0, 0, 0, 0, 0, 0xF0, 0x3F));
}

TEST(Archive, WritesRawBytesWithoutLength) {
    Archive archive;
    archive.write("ab", 2);
    EXPECT_THAT(bytesOf(archive), ElementsAre(0x61, 0x62));
}

TEST(Archive, WritesNothingOfNullOrBelowOneByte) {
    Archive archive;
    archive.write(nullptr, 3);
    archive.write("ab", 0);
    archive.write("ab", -1);
    EXPECT_EQ(archive.getSize(), 0U);
}

TEST(Archive, StringIsLengthAndBytes) {
    Archive archive;
    archive.write(std::string("abc"));
    EXPECT_THAT(bytesOf(archive), ElementsAre(0, 0, 0, 3, 0x61, 0x62, 0x63));
    EXPECT_EQ(readOf<std::string>(archive).value, "abc");
}

TEST(Archive, StringIsCutToItsMaximumLength) {
    Archive archive;
    archive.write(std::string("abcd"), 2);
    EXPECT_THAT(bytesOf(archive), ElementsAre(0, 0, 0, 2, 0x61, 0x62));
}

TEST(Archive, MaximumLengthAboveTheStringsChangesNothing) {
    Archive archive;
    archive.write(std::string("ab"), 9);
    EXPECT_THAT(bytesOf(archive), ElementsAre(0, 0, 0, 2, 0x61, 0x62));
}

TEST(Archive, MaximumLengthZeroWritesAnEmptyString) {
    Archive archive;
    archive.write(std::string("ab"), 0);
    EXPECT_THAT(bytesOf(archive), ElementsAre(0, 0, 0, 0));
}

TEST(Archive, WideStringIsCountAndCharactersInHostOrder) {
    Archive archive;
    archive.write(std::wstring(L"a\x20AC"));
    EXPECT_THAT(bytesOf(archive), ElementsAre(0, 0, 0, 2, 0x61, 0, 0, 0, 0xAC, 0x20, 0, 0));
}

TEST(Archive, NestedObjectIsSizeAndBytes) {
    Pair pair;
    pair.number = 0x0102;
    Archive archive;
    archive.write(pair);
    EXPECT_THAT(bytesOf(archive), ElementsAre(0, 0, 0, 2, 1, 2));
}

TEST(Archive, ReadsBackEveryNumber) {
    Archive archive;
    archive.write('a');
    archive.write(static_cast<signed char>(-5));
    archive.write(std::int16_t{-300});
    archive.write(std::numeric_limits<std::int32_t>::min());
    archive.write(std::numeric_limits<std::int64_t>::min());
    archive.write(std::numeric_limits<std::uint64_t>::max());
    archive.write(2.5F);
    archive.write(-0.125);
    EXPECT_EQ(readOf<char>(archive).value, 'a');
    EXPECT_EQ(readOf<signed char>(archive).value, -5);
    EXPECT_EQ(readOf<std::int16_t>(archive).value, -300);
    EXPECT_EQ(readOf<std::int32_t>(archive).value, std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(readOf<std::int64_t>(archive).value, std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(readOf<std::uint64_t>(archive).value, std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(readOf<float>(archive).value, 2.5F);
    EXPECT_EQ(readOf<double>(archive).value, -0.125);
    EXPECT_EQ(archive.getRemaining(), 0U);
}

TEST(Archive, ReadOf32BitsFrom3BytesLogsAndLeavesTheCursor) {
    Loaded archive{1, 2, 3};
    const auto outcome = readOf<std::uint32_t>(archive, 7);
    EXPECT_EQ(outcome.value, 0U);
    EXPECT_EQ(outcome.cursor, 0U);
    EXPECT_EQ(outcome.complaints, 1U);
}

TEST(Archive, ReadOf16BitsFrom1ByteLogsAndLeavesTheCursor) {
    Loaded archive{1};
    const auto outcome = readOf<std::int16_t>(archive, std::int16_t{7});
    EXPECT_EQ(outcome.value, 0);
    EXPECT_EQ(outcome.cursor, 0U);
    EXPECT_EQ(outcome.complaints, 1U);
}

TEST(Archive, ReadOf64BitsFrom5BytesKeepsTheHighHalf) {
    Loaded archive{0, 0, 0, 1, 9};
    const auto outcome = readOf<std::uint64_t>(archive, 7);
    EXPECT_EQ(outcome.value, std::uint64_t{1} << 32);
    EXPECT_EQ(outcome.cursor, 4U);
    EXPECT_EQ(outcome.complaints, 1U);
}

TEST(Archive, ReadOfFloatFrom3BytesLogsAndLeavesTheCursor) {
    Loaded archive{1, 2, 3};
    const auto outcome = readOf<float>(archive, 7.0F);
    EXPECT_EQ(outcome.value, 0.0F);
    EXPECT_EQ(outcome.cursor, 0U);
    EXPECT_EQ(outcome.complaints, 1U);
}

TEST(Archive, ReadOfDoubleFrom7BytesLogsAndLeavesTheCursor) {
    Loaded archive{1, 2, 3, 4, 5, 6, 7};
    const auto outcome = readOf<double>(archive, 7.0);
    EXPECT_EQ(outcome.value, 0.0);
    EXPECT_EQ(outcome.cursor, 0U);
    EXPECT_EQ(outcome.complaints, 1U);
}

TEST(Archive, FailedReadNamesTheReadAndItsSource) {
    const LogCapture log;
    Archive archive;
    std::uint32_t number = 0;
    archive.read(number);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_THAT(log.lines()[0],
                testing::MatchesRegex(
                    "\\[error\\] read\\(\\)@QMSerializable\\([0-9]+\\) \\{\\} : buffer size over!"));
}

TEST(Archive, BytesPastTheEndAreZeroAndStillMoveTheCursor) {
    Loaded archive{5};
    readOf<unsigned char>(archive);
    const auto outcome = readOf<unsigned char>(archive, 7);
    EXPECT_EQ(outcome.value, 0);
    EXPECT_EQ(outcome.cursor, 2U);
    EXPECT_EQ(outcome.complaints, 0U);
}

TEST(Archive, EveryReadIsRefusedOnceTheCursorIsPastTheEnd) {
    Loaded archive{5};
    readOf<char>(archive);
    readOf<char>(archive);
    EXPECT_EQ(readOf<std::uint16_t>(archive).complaints, 1U);
    EXPECT_EQ(readOf<std::uint32_t>(archive).complaints, 1U);
    EXPECT_EQ(readOf<float>(archive).complaints, 1U);
    EXPECT_EQ(readOf<double>(archive).complaints, 1U);
    EXPECT_EQ(readOf<std::string>(archive).value, "");
    EXPECT_EQ(archive.getRemaining(), 0U);
    EXPECT_EQ(archive.getReadPos(), 2U);
}

TEST(Archive, ReadsBools) {
    Loaded archive{1, 0};
    EXPECT_TRUE(readOf<bool>(archive, false).value);
    EXPECT_FALSE(readOf<bool>(archive, true).value);
}

TEST(Archive, BoolPastTheEndIsFalse) {
    Archive archive;
    const auto outcome = readOf<bool>(archive, true);
    EXPECT_FALSE(outcome.value);
    EXPECT_EQ(outcome.cursor, 1U);
    EXPECT_EQ(outcome.complaints, 0U);
}

TEST(Archive, BoolByteTwoRaisesAnAssertionAndLeavesTheDestination) {
    const LogCapture log;
    Loaded archive{2};
    bool value = true;
    archive.read(value);
    EXPECT_TRUE(value);
    EXPECT_EQ(archive.getReadPos(), 1U);
    EXPECT_TRUE(log.contains("ASSERT Failed! - QMFramework92/Pattern/private/QMSerializable"));
}

TEST(Archive, RawReadCopiesAndMovesTheCursor) {
    Loaded archive{1, 2, 3};
    unsigned char bytes[2] = {};
    archive.read(bytes, 2);
    EXPECT_THAT(bytes, ElementsAre(1, 2));
    EXPECT_EQ(archive.getReadPos(), 2U);
}

TEST(Archive, RawReadIntoNullDoesNothing) {
    const LogCapture log;
    Loaded archive{1, 2, 3};
    void* nowhere = nullptr;
    archive.read(nowhere, 9);
    EXPECT_EQ(archive.getReadPos(), 0U);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Archive, RawReadBeyondTheEndLogsAndCopiesNothing) {
    const LogCapture log;
    Loaded archive{1, 2, 3};
    unsigned char bytes[4] = {9, 9, 9, 9};
    archive.read(bytes, 4);
    EXPECT_THAT(bytes, ElementsAre(9, 9, 9, 9));
    EXPECT_EQ(archive.getReadPos(), 0U);
    EXPECT_EQ(log.count(kOver), 1U);
}

TEST(Archive, RawReadOfTheLargestLengthTouchesNothing) {
    const LogCapture log;
    Loaded archive{1, 2, 3, 4};
    unsigned char byte = 0;
    archive.read(byte);
    archive.read(byte);
    archive.read(&byte, 0xFFFFFFFF);
    EXPECT_EQ(byte, 2);
    EXPECT_EQ(archive.getReadPos(), 2U);
    EXPECT_EQ(log.count(kOver), 1U);
}

TEST(Archive, ReadingNoBytesAtCursorZeroIsLogged) {
    const LogCapture log;
    Loaded archive{1, 2, 3};
    unsigned char byte = 0;
    archive.read(&byte, 0);
    EXPECT_EQ(log.count(kOver), 1U);
}

TEST(Archive, ReadingNoBytesAtCursorOneIsSilent) {
    const LogCapture log;
    Loaded archive{1, 2, 3};
    unsigned char byte = 0;
    archive.read(byte);
    archive.read(&byte, 0);
    EXPECT_EQ(log.count(kOver), 0U);
    EXPECT_EQ(archive.getReadPos(), 1U);
}

TEST(Archive, ByteListReadTakesWhatIsThere) {
    Loaded archive{1, 2, 3};
    std::vector<std::uint8_t> bytes{9, 9, 9, 9};
    archive.read(bytes, 2);
    EXPECT_THAT(bytes, ElementsAre(1, 2));
}

TEST(Archive, ByteListReadBeyondTheEndYieldsNothing) {
    const LogCapture log;
    Loaded archive{1, 2, 3};
    std::vector<std::uint8_t> bytes{9};
    archive.read(bytes, 0xFFFFFFFF);
    EXPECT_THAT(bytes, IsEmpty());
    EXPECT_EQ(log.count(kOver), 1U);
    EXPECT_EQ(archive.getReadPos(), 0U);
}

TEST(Archive, ByteListReadOfNothingIsSilent) {
    const LogCapture log;
    Archive archive;
    std::vector<std::uint8_t> bytes{9};
    archive.read(bytes, 0);
    EXPECT_THAT(bytes, IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Archive, StringEndsAtItsFirstZeroByteAndConsumesAll) {
    Loaded archive{0, 0, 0, 3, 0x61, 0, 0x62};
    const auto outcome = readOf<std::string>(archive);
    EXPECT_EQ(outcome.value, "a");
    EXPECT_EQ(outcome.cursor, 7U);
}

TEST(Archive, StringReadReplacesTheDestination) {
    Loaded archive{0, 0, 0, 1, 0x61};
    EXPECT_EQ(readOf<std::string>(archive, "earlier text").value, "a");
}

TEST(Archive, StringThatAnnouncesTooMuchIsEmptyAndConsumesItsLength) {
    Loaded archive{0xFF, 0xFF, 0xFF, 0xFF, 0x61};
    const auto outcome = readOf<std::string>(archive, "earlier text");
    EXPECT_EQ(outcome.value, "");
    EXPECT_EQ(outcome.cursor, 4U);
    EXPECT_EQ(outcome.complaints, 1U);
}

TEST(Archive, EmptyStringAtTheEndIsSilent) {
    Loaded archive{0, 0, 0, 0};
    const auto outcome = readOf<std::string>(archive);
    EXPECT_EQ(outcome.cursor, 4U);
    EXPECT_EQ(outcome.complaints, 0U);
}

TEST(Archive, StringReadFromNothingLogsLengthAndText) {
    Archive archive;
    const auto outcome = readOf<std::string>(archive, "earlier text");
    EXPECT_EQ(outcome.value, "");
    EXPECT_EQ(outcome.complaints, 2U);
}

TEST(Archive, StringReadWithoutALengthBehindOtherFieldsLogsOnce) {
    Loaded archive{7, 1, 2};
    readOf<char>(archive);
    EXPECT_EQ(readOf<std::string>(archive).complaints, 1U);
}

TEST(Archive, ReadsBackAWideString) {
    Archive archive;
    archive.write(std::wstring(L"a\x20AC"));
    EXPECT_EQ(readOf<std::wstring>(archive).value, L"a\x20AC");
}

TEST(Archive, WideStringEndsAtItsFirstZeroCharacterAndConsumesAll) {
    Archive archive;
    archive.write(std::wstring(L"a\0b", 3));
    const auto outcome = readOf<std::wstring>(archive, L"earlier text");
    EXPECT_EQ(outcome.value, L"a");
    EXPECT_EQ(outcome.cursor, 16U);
}

TEST(Archive, WideStringCountThatOverflowsItsByteCountIsRefused) {
    Loaded archive{0x40, 0, 0, 0, 0x61, 0, 0, 0};
    const auto outcome = readOf<std::wstring>(archive, L"earlier text");
    EXPECT_EQ(outcome.value, L"");
    EXPECT_EQ(outcome.cursor, 4U);
    EXPECT_EQ(outcome.complaints, 1U);
}

TEST(Archive, WideStringOfTheLargestCountIsRefused) {
    Loaded archive{0xFF, 0xFF, 0xFF, 0xFF, 0x61, 0, 0, 0};
    const auto outcome = readOf<std::wstring>(archive);
    EXPECT_EQ(outcome.value, L"");
    EXPECT_EQ(outcome.complaints, 1U);
}

TEST(Archive, ReadsBackANestedObject) {
    Loaded archive{0, 0, 0, 2, 1, 2, 9};
    Pair pair;
    archive.read(pair);
    EXPECT_EQ(pair.number, 0x0102);
    EXPECT_EQ(archive.getReadPos(), 6U);
}

TEST(Archive, NestedObjectGetsOnlyWhatIsThereAndTheCursorMovesByWhatWasAnnounced) {
    Loaded archive{0, 0, 0, 9, 1, 2};
    Pair pair;
    archive.read(pair);
    EXPECT_EQ(pair.handed, 2U);
    EXPECT_EQ(archive.getReadPos(), 13U);
}

TEST(Archive, NestedObjectOfTheLargestLengthStopsTheCursorAtItsLimit) {
    Loaded archive{0xFF, 0xFF, 0xFF, 0xFF, 1, 2};
    Pair pair;
    archive.read(pair);
    EXPECT_EQ(pair.handed, 2U);
    EXPECT_EQ(archive.getReadPos(), 0xFFFFFFFF);
    EXPECT_EQ(readOf<std::uint16_t>(archive).complaints, 1U);
    EXPECT_EQ(readOf<std::uint32_t>(archive).value, 0U);
    EXPECT_EQ(readOf<unsigned char>(archive).value, 0);
    EXPECT_EQ(archive.getReadPos(), 0xFFFFFFFF);
}

TEST(Archive, NestedObjectThatStartsAtTheEndIsLoggedAndNotRead) {
    const LogCapture log;
    Loaded archive{0, 0, 0, 2};
    Pair pair;
    archive.read(pair);
    EXPECT_EQ(pair.handed, 99U);
    EXPECT_EQ(archive.getReadPos(), 4U);
    EXPECT_EQ(log.count(kOver), 1U);
}

TEST(Archive, BytesStayWhatTheyAreWhileTheBufferGrows) {
    Archive archive(0);
    std::vector<std::uint8_t> expected;
    for (unsigned i = 0; i < 5000; ++i) {
        const auto byte = static_cast<unsigned char>(i * 7);
        archive.write(byte);
        expected.push_back(byte);
    }
    const std::vector<std::uint8_t> block(100000, std::uint8_t{0xA5});
    archive.write(block.data(), static_cast<int>(block.size()));
    expected.insert(expected.end(), block.begin(), block.end());
    const std::uint8_t* const first = archive.getBuffer();
    EXPECT_EQ(std::vector<std::uint8_t>(first, first + archive.getSize()), expected);
}

TEST(Archive, ClearingAnArchiveOfOrdinarySizeKeepsItsBuffer) {
    Archive archive;
    const std::uint8_t* const first = archive.getBuffer();
    archive.write(std::uint32_t{1});
    archive.clear();
    EXPECT_EQ(archive.getBuffer(), first);
    EXPECT_EQ(archive.getSize(), 0U);
    const std::vector<std::uint8_t> block(1024, std::uint8_t{1});
    archive.write(block.data(), static_cast<int>(block.size()));
    EXPECT_EQ(archive.getBuffer(), first);
}

}  // namespace
