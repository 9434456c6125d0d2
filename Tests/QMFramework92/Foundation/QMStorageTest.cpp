#include "Foundation/QMStorage.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "Tests/QMFramework92/Foundation/FileCallHooks.h"
#include "Tests/QMFramework92/Foundation/FileScene.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ProcessState.h"
#include "Utility/QMString.h"

namespace {

using wpp_test::FailingFileCall;
using wpp_test::FileCall;
using wpp_test::FileScene;
using wpp_test::fsyncCount;
using wpp_test::LogCapture;

std::string readAll(QMStorage& file) {
    std::array<char, 64> block{};
    return {block.data(), static_cast<std::size_t>(file.Read(block.data(), block.size()))};
}

TEST(QMStorage, OpenReadsAFile) {
    FileScene scene;
    const std::string path = scene.file("a", "hello");
    QMStorage file;
    EXPECT_FALSE(file.IsOpen());
    ASSERT_EQ(file.Open(path.c_str(), "rb"), 0);
    EXPECT_TRUE(file.IsOpen());
    EXPECT_EQ(readAll(file), "hello");
    EXPECT_EQ(file.Close(), 0);
    EXPECT_FALSE(file.IsOpen());
}

TEST(QMStorage, OpenOfAMissingFileIsLogged) {
    FileScene scene;
    const LogCapture log;
    QMStorage file;
    EXPECT_EQ(file.Open(scene.at("none").c_str(), "rb"), 1);
    EXPECT_TRUE(log.contains("Open()"));
    EXPECT_TRUE(log.contains("[2 : No such file or directory] , path[" + scene.at("none") + "], fopen()"));
    EXPECT_FALSE(file.IsOpen());
}

TEST(QMStorage, OpenWithoutPathOrModeIsLogged) {
    FileScene scene;
    const std::string path = scene.file("a");
    const LogCapture log;
    QMStorage file;
    EXPECT_EQ(file.Open(nullptr, "rb"), 1);
    EXPECT_EQ(file.Open("", "rb"), 1);
    EXPECT_EQ(log.count(", path[], fopen()"), 2U);
    EXPECT_EQ(file.Open(path.c_str(), nullptr), 1);
    EXPECT_EQ(file.Open(path.c_str(), ""), 1);
    EXPECT_EQ(file.Open(path.c_str(), "q"), 1);
    EXPECT_EQ(log.count(", path[" + path + "], fopen()"), 3U);
}

TEST(QMStorage, OpenClosesTheFileBefore) {
    FileScene scene;
    const LogCapture log;
    const auto before = wpp_test::openDescriptors();
    QMStorage file;
    ASSERT_EQ(file.Open(scene.at("a").c_str(), "wb"), 0);
    ASSERT_EQ(file.WriteLine("one"), 0);
    ASSERT_EQ(file.Open(scene.at("b").c_str(), "wb"), 0);
    EXPECT_EQ(scene.content("a"), "one\n");
    EXPECT_EQ(file.Open(scene.at("none/b").c_str(), "wb"), 1);
    EXPECT_EQ(wpp_test::openDescriptors(), before);
}

TEST(QMStorage, TheDestructorClosesTheFile) {
    FileScene scene;
    const auto before = wpp_test::openDescriptors();
    {
        QMStorage file;
        ASSERT_EQ(file.Open(scene.at("a").c_str(), "wb"), 0);
        ASSERT_EQ(file.WriteLine("one"), 0);
    }
    EXPECT_EQ(scene.content("a"), "one\n");
    EXPECT_EQ(wpp_test::openDescriptors(), before);
}

TEST(QMStorage, WideAndFrameworkStringsNameFilesToo) {
    FileScene scene;
    const std::string path = scene.file("\xC3\xA9", "12345");
    QMString text(path.c_str(), QM_CODE_PAGE_UTF8);
    const std::wstring wide = std::wstring(path.begin(), path.end() - 2) + L'\u00e9';
    QMStorage file;
    EXPECT_EQ(file.Open(wide.c_str(), "rb"), 0);
    EXPECT_EQ(file.Open(text, "rb"), 0);
    EXPECT_EQ(QMStorage::Size(wide.c_str()), 5U);
    EXPECT_EQ(QMStorage::Size(text), 5U);
}

TEST(QMStorage, NoProgramStartedLaterInheritsTheFile) {
    FileScene scene;
    for (const char* mode : {"w", "wb", "rb", "r+", "ab+", "w+bx", "rm"}) {
        if (std::strchr(mode, 'x') != nullptr) {
            std::remove(scene.at("a").c_str());
        }
        const auto before = wpp_test::openDescriptors();
        QMStorage file;
        ASSERT_EQ(file.Open(scene.at("a").c_str(), mode), 0) << mode;
        int opened = 0;
        for (const int descriptor : wpp_test::openDescriptors()) {
            if (before.count(descriptor) == 0) {
                ++opened;
                EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << mode;
            }
        }
        EXPECT_EQ(opened, 1) << mode;
    }
}

TEST(QMStorage, EveryLetterOfALongModeStillCounts) {
    FileScene scene;
    scene.file("a", "old");
    QMStorage file;
    ASSERT_EQ(file.Open(scene.at("a").c_str(), "rbbbbb+"), 0);
    EXPECT_EQ(file.WriteLine("new"), 0);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(scene.content("a"), "new\n");
}

TEST(QMStorage, ReadRefusesWhatCannotBeRead) {
    FileScene scene;
    const std::string path = scene.file("a", "hello");
    std::array<char, 8> buffer{};
    QMStorage file;
    EXPECT_EQ(file.Read(buffer.data(), 5), 0U);
    ASSERT_EQ(file.Open(path.c_str(), "rb"), 0);
    EXPECT_EQ(file.Read(nullptr, 5), 0U);
    EXPECT_EQ(file.Read(buffer.data(), 0), 0U);
    EXPECT_EQ(file.Read(buffer.data(), -1), 0U);
    EXPECT_EQ(file.Read(buffer.data(), 1), 1U);
    EXPECT_EQ(buffer[0], 'h');
}

TEST(QMStorage, ReadReturnsLessAtTheEnd) {
    FileScene scene;
    const std::string path = scene.file("a", "hello");
    std::array<char, 8> buffer{};
    QMStorage file;
    ASSERT_EQ(file.Open(path.c_str(), "rb"), 0);
    EXPECT_EQ(file.Read(buffer.data(), 5), 5U);
    EXPECT_EQ(file.IsEndOfFile(), 0);
    EXPECT_EQ(file.Read(buffer.data(), 5), 0U);
    EXPECT_NE(file.IsEndOfFile(), 0);
}

TEST(QMStorage, AFailedReadIsLogged) {
    FileScene scene;
    const LogCapture log;
    std::array<char, 8> buffer{};
    QMStorage file;
    ASSERT_EQ(file.Open(scene.top().c_str(), "rb"), 0);
    EXPECT_EQ(file.Read(buffer.data(), 5), 0U);
    EXPECT_TRUE(log.contains("[21 : Is a directory] , fread()"));
    EXPECT_EQ(file.Size(), 0U);
}

TEST(QMStorage, WriteLineEndsEachLineOnce) {
    FileScene scene;
    QMStorage file;
    ASSERT_EQ(file.Open(scene.at("a").c_str(), "wb"), 0);
    EXPECT_EQ(file.WriteLine("one"), 0);
    EXPECT_EQ(file.WriteLine("two\n"), 0);
    EXPECT_EQ(file.WriteLine(""), 0);
    EXPECT_EQ(file.WriteLine("\n"), 0);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(scene.content("a"), "one\ntwo\n\n\n");
}

TEST(QMStorage, WriteTakesAnyBytes) {
    FileScene scene;
    const std::string bytes("a\0b\n", 4);
    QMStorage file;
    EXPECT_EQ(file.Write(bytes.data(), bytes.size()), 0U);
    ASSERT_EQ(file.Open(scene.at("a").c_str(), "wb"), 0);
    EXPECT_EQ(file.Write(bytes.data(), bytes.size()), 4U);
    EXPECT_EQ(file.Write(bytes.data(), 0), 0U);
    EXPECT_EQ(file.Write(nullptr, 4), 0U);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(scene.content("a"), bytes);
}

TEST(QMStorage, AClosedFileIsReportedByWhatNeedsOne) {
    const LogCapture log;
    QMStorage file;
    EXPECT_EQ(file.Seek(0, SEEK_SET), 1);
    EXPECT_TRUE(log.contains("Seek()"));
    EXPECT_EQ(file.IsEndOfFile(), 0);
    EXPECT_TRUE(log.contains("IsEndOfFile()"));
    EXPECT_EQ(file.WriteLine("a"), 1);
    EXPECT_EQ(file.Flush(), 1);
    EXPECT_EQ(log.count("file is not opened"), 4U);
}

TEST(QMStorage, CloseAndSizeOfAClosedFileAreSilent) {
    const LogCapture log;
    QMStorage file;
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(file.Size(), 0U);
    EXPECT_TRUE(log.lines().empty());
}

TEST(QMStorage, ANullLineIsRefused) {
    FileScene scene;
    const LogCapture log;
    QMStorage file;
    ASSERT_EQ(file.Open(scene.at("a").c_str(), "wb"), 0);
    EXPECT_EQ(file.WriteLine(nullptr), 1);
    EXPECT_TRUE(log.contains("invalid arg"));
}

TEST(QMStorage, SeekMovesFromEitherEndAndFromHere) {
    FileScene scene;
    const std::string path = scene.file("a", "0123456789");
    std::array<char, 2> buffer{};
    QMStorage file;
    ASSERT_EQ(file.Open(path.c_str(), "rb"), 0);
    EXPECT_EQ(file.Seek(4, SEEK_SET), 0);
    EXPECT_EQ(file.Read(buffer.data(), 1), 1U);
    EXPECT_EQ(buffer[0], '4');
    EXPECT_EQ(file.Seek(2, SEEK_CUR), 0);
    EXPECT_EQ(file.Read(buffer.data(), 1), 1U);
    EXPECT_EQ(buffer[0], '7');
    EXPECT_EQ(file.Seek(-1, SEEK_END), 0);
    EXPECT_EQ(file.Read(buffer.data(), 1), 1U);
    EXPECT_EQ(buffer[0], '9');
}

TEST(QMStorage, AFailedSeekIsLogged) {
    FileScene scene;
    const std::string path = scene.file("a");
    const LogCapture log;
    QMStorage file;
    ASSERT_EQ(file.Open(path.c_str(), "rb"), 0);
    EXPECT_EQ(file.Seek(-1, SEEK_SET), 1);
    EXPECT_EQ(file.Seek(0, 77), 1);
    EXPECT_EQ(log.count("[22 : Invalid argument] , fseek()"), 2U);
    EXPECT_EQ(readAll(file), "content");
}

TEST(QMStorage, SizeKeepsPositionAndEndMark) {
    FileScene scene;
    const std::string path = scene.file("a", "0123456789");
    QMStorage file;
    ASSERT_EQ(file.Open(path.c_str(), "rb"), 0);
    ASSERT_EQ(file.Seek(8, SEEK_SET), 0);
    EXPECT_EQ(file.Size(), 10U);
    EXPECT_EQ(readAll(file), "89");
    EXPECT_EQ(file.Size(), 10U);
    EXPECT_NE(file.IsEndOfFile(), 0);
}

TEST(QMStorage, SizeCountsWhatLiesInTheBuffer) {
    FileScene scene;
    QMStorage file;
    ASSERT_EQ(file.Open(scene.at("a").c_str(), "wb"), 0);
    EXPECT_EQ(file.Size(), 0U);
    EXPECT_EQ(file.WriteLine("12345"), 0);
    EXPECT_EQ(file.Size(), 6U);
    EXPECT_EQ(file.WriteLine("12345"), 0);
    EXPECT_EQ(file.Size(), 12U);
}

TEST(QMStorage, SizeOfANamedFile) {
    FileScene scene;
    const LogCapture log;
    EXPECT_EQ(QMStorage::Size(scene.file("empty", "").c_str()), 0U);
    EXPECT_EQ(QMStorage::Size(scene.file("one", "1").c_str()), 1U);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(QMStorage::Size(scene.at("none").c_str()), 0U);
    EXPECT_EQ(log.count("fopen()"), 1U);
    EXPECT_EQ(QMStorage::Size(nullptr), 0U);
}

TEST(QMStorage, SizeOfWhatIsNoFileIsNothingAndNeverWaits) {
    FileScene scene;
    EXPECT_EQ(QMStorage::Size(scene.fifo("fifo").c_str()), 0U);
    EXPECT_EQ(QMStorage::Size(scene.top().c_str()), 0U);
    EXPECT_EQ(QMStorage::Size("/dev/zero"), 0U);
}

TEST(QMStorage, FilesOfMoreThanFourGibibytesAreReached) {
    constexpr std::int64_t kLength = std::int64_t{5} << 30;
    FileScene scene;
    const std::string path = scene.file("big", "");
    ASSERT_EQ(truncate(path.c_str(), kLength), 0);
    QMStorage file;
    ASSERT_EQ(file.Open(path.c_str(), "rb+"), 0);
    EXPECT_EQ(file.Size(), static_cast<std::uint64_t>(kLength));
    EXPECT_EQ(QMStorage::Size(path.c_str()), static_cast<std::uint64_t>(kLength));
    EXPECT_EQ(file.Seek(kLength, SEEK_SET), 0);
    EXPECT_EQ(file.WriteLine("end"), 0);
    EXPECT_EQ(file.Seek(-4, SEEK_END), 0);
    EXPECT_EQ(readAll(file), "end\n");
    EXPECT_EQ(file.Size(), static_cast<std::uint64_t>(kLength) + 4);
    EXPECT_EQ(file.Seek(-kLength - 4, SEEK_CUR), 0);
    char first = 'x';
    EXPECT_EQ(file.Read(&first, 1), 1U);
    EXPECT_EQ(first, '\0');
}

TEST(QMStorage, ReadingAndWritingTakeTurns) {
    FileScene scene;
    const std::string path = scene.file("a", "0123456789");
    std::array<char, 3> buffer{};
    QMStorage file;
    ASSERT_EQ(file.Open(path.c_str(), "rb+"), 0);
    EXPECT_EQ(file.Read(buffer.data(), 2), 2U);
    EXPECT_EQ(file.Write("AB", 2), 2U);
    EXPECT_EQ(file.Read(buffer.data(), 2), 2U);
    EXPECT_EQ(std::string(buffer.data(), 2), "45");
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(scene.content("a"), "01AB456789");
}

TEST(QMStorage, FlushPutsEverythingOnTheDisk) {
    FileScene scene;
    QMStorage file;
    ASSERT_EQ(file.Open(scene.at("a").c_str(), "wb"), 0);
    ASSERT_EQ(file.WriteLine("one"), 0);
    const int before = fsyncCount();
    EXPECT_EQ(file.Flush(), 0);
    EXPECT_EQ(fsyncCount(), before + 1);
    EXPECT_EQ(scene.content("a"), "one\n");
}

TEST(QMStorage, OnlyAWrittenFileIsSyncedWhenItCloses) {
    FileScene scene;
    const std::string path = scene.file("a");
    QMStorage file;
    const int before = fsyncCount();
    ASSERT_EQ(file.Open(path.c_str(), "rb+"), 0);
    readAll(file);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(fsyncCount(), before);
    ASSERT_EQ(file.Open(path.c_str(), "rb+"), 0);
    EXPECT_EQ(file.WriteLine("a"), 0);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(fsyncCount(), before + 1);
    ASSERT_EQ(file.Open(path.c_str(), "rb+"), 0);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(fsyncCount(), before + 1);
}

TEST(QMStorage, APipeCountsAsWrittenWhenTheBufferIsOut) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    QMStorage file;
    ASSERT_EQ(file.Open(("/proc/self/fd/" + std::to_string(ends[1])).c_str(), "w"), 0);
    EXPECT_EQ(file.WriteLine("a"), 0);
    EXPECT_EQ(file.Flush(), 0);
    EXPECT_EQ(file.Size(), 0U);
    EXPECT_EQ(file.Close(), 0);
    close(ends[0]);
    close(ends[1]);
}

TEST(QMStorage, AFullDeviceShowsWhenTheBufferGoesOut) {
    const LogCapture log;
    QMStorage file;
    ASSERT_EQ(file.Open("/dev/full", "wb"), 0);
    EXPECT_EQ(file.WriteLine("a"), 0);
    EXPECT_EQ(file.Flush(), 1);
    EXPECT_TRUE(log.contains("[28 : No space left on device] , fflush()"));
    ASSERT_EQ(file.Open("/dev/full", "wb"), 0);
    EXPECT_EQ(file.WriteLine("a"), 0);
    EXPECT_EQ(file.Close(), 1);
    EXPECT_FALSE(file.IsOpen());
}

TEST(QMStorage, AFullDeviceShowsInAWriteThatIsLongerThanTheBuffer) {
    const std::string longText(100000, 'a');
    const LogCapture log;
    QMStorage file;
    ASSERT_EQ(file.Open("/dev/full", "wb"), 0);
    EXPECT_EQ(file.WriteLine(longText.c_str()), 1);
    EXPECT_LT(file.Write(longText.data(), longText.size()), longText.size());
    EXPECT_EQ(log.count("[28 : No space left on device] , fwrite()"), 2U);
}

TEST(QMStorage, WhatWasLostOnceIsReportedByClose) {
    FileScene scene;
    const std::string path = scene.at("a");
    const LogCapture log;
    EXPECT_TRUE(wpp_test::inChildWithFileSizeLimit(8192, [&] {
        const std::string tooLong(16384, 'a');
        QMStorage file;
        const bool isLost = file.Open(path.c_str(), "wb") == 0 && file.WriteLine(tooLong.c_str()) == 1;
        // What follows fits again, and goes out without an error.
        return isLost && file.Seek(0, SEEK_SET) == 0 && file.WriteLine("b") == 0 && file.Close() == 1;
    }));
    EXPECT_TRUE(log.contains("[27 : File too large] , fwrite()"));
}

TEST(QMStorage, AFullDiskIsNeverASilentSuccess) {
    FileScene scene;
    const std::string folder = scene.folder("disk");
    const LogCapture log;
    EXPECT_TRUE(wpp_test::inChildWithFullDisk(folder, 65536, [&] {
        const std::string line(1000, 'a');
        QMStorage file;
        int failures = file.Open((folder + "/a").c_str(), "wb");
        for (int i = 0; failures == 0 && i < 1000; ++i) {
            failures += file.WriteLine(line.c_str());
        }
        return failures == 1 && file.Close() == 1;
    }));
}

TEST(QMStorage, AFailedSyncFailsFlushAndClose) {
    FileScene scene;
    const LogCapture log;
    QMStorage file;
    ASSERT_EQ(file.Open(scene.at("a").c_str(), "wb"), 0);
    ASSERT_EQ(file.WriteLine("a"), 0);
    {
        const FailingFileCall fails(FileCall::kFsync, EIO);
        EXPECT_EQ(file.Flush(), 1);
    }
    EXPECT_TRUE(log.contains("Flush()"));
    EXPECT_TRUE(log.contains("[5 : Input/output error] , fsync()"));
    EXPECT_EQ(file.Close(), 1);
}

TEST(QMStorage, AFailedCloseIsReportedAndClosesAllTheSame) {
    FileScene scene;
    const LogCapture log;
    QMStorage file;
    ASSERT_EQ(file.Open(scene.at("a").c_str(), "wb"), 0);
    {
        const FailingFileCall fails(FileCall::kFclose, EIO);
        EXPECT_EQ(file.Close(), 1);
    }
    EXPECT_TRUE(log.contains("[5 : Input/output error] , fclose()"));
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.Close(), 0);
}

}  // namespace
