#include "Foundation/private/QMFileCopy.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <string>

#include "Foundation/QMFileSys.h"
#include "Tests/QMFramework92/Foundation/FileCallHooks.h"
#include "Tests/QMFramework92/Foundation/FileScene.h"
#include "Tests/Support/LogCapture.h"

namespace {

using testing::ElementsAre;
using wpp_test::FailingFileCall;
using wpp_test::FileCall;
using wpp_test::FileScene;
using wpp_test::LogCapture;
using wpp_test::syncCount;

bool copy(const std::string& src, const std::string& dst, bool failIfExists = false, bool doSync = false) {
    return QMFileSys::Copy(src.c_str(), dst.c_str(), failIfExists, doSync);
}

TEST(QMFileCopy, AFileOfAnyLengthIsCopiedWhole) {
    FileScene scene;
    for (const std::size_t length : {0U, 1U, 1023U, 1024U, 1025U, 2048U, 3000001U}) {
        std::string content(length, '\0');
        for (std::size_t i = 0; i < length; ++i) {
            content[i] = static_cast<char>(i * 31 + i / 1024);
        }
        scene.file("a", content);
        ASSERT_TRUE(copy(scene.at("a"), scene.at("b"))) << length;
        ASSERT_EQ(scene.content("b"), content) << length;
        ASSERT_EQ(scene.content("a"), content) << length;
    }
}

TEST(QMFileCopy, TheDirectoriesAboveTheDestinationAreMade) {
    FileScene scene;
    scene.file("a", "hello");
    EXPECT_TRUE(copy(scene.at("a"), scene.at("x/y/b")));
    EXPECT_EQ(scene.content("x/y/b"), "hello");
    scene.directory.enter();
    EXPECT_TRUE(copy("a", "c"));
    EXPECT_EQ(scene.content("c"), "hello");
}

TEST(QMFileCopy, AFileIsWrittenOver) {
    FileScene scene;
    scene.file("a", "new");
    scene.file("b", "the old content");
    EXPECT_TRUE(copy(scene.at("a"), scene.at("b")));
    EXPECT_EQ(scene.content("b"), "new");
}

TEST(QMFileCopy, ATreeIsCopiedWhole) {
    FileScene scene;
    scene.file("a/one", "1");
    scene.file("a/b/two", "2");
    scene.file("a/b/.three", "3");
    scene.file("a/*?/ four\n", "4");
    scene.folder("a/empty");
    EXPECT_TRUE(copy(scene.at("a"), scene.at("x/z")));
    EXPECT_EQ(scene.below("a"), scene.below("x/z"));
    EXPECT_EQ(scene.content("x/z/b/two"), "2");
    EXPECT_EQ(scene.content("x/z/*?/ four\n"), "4");
}

TEST(QMFileCopy, SlashesAtTheEndOfADirectoryDoNotCount) {
    FileScene scene;
    scene.file("a/b/c");
    EXPECT_TRUE(copy(scene.at("a//"), scene.at("z/")));
    EXPECT_THAT(scene.below("z"), ElementsAre("b", "b/c"));
}

TEST(QMFileCopy, ATreeIsMergedIntoAnExistingOne) {
    FileScene scene;
    scene.file("a/b/one", "new");
    scene.file("z/b/one", "old");
    scene.file("z/b/two", "kept");
    EXPECT_TRUE(copy(scene.at("a"), scene.at("z")));
    EXPECT_EQ(scene.content("z/b/one"), "new");
    EXPECT_EQ(scene.content("z/b/two"), "kept");
}

TEST(QMFileCopy, DeepTreesCostNoDescriptors) {
    FileScene scene;
    std::string path = "a";
    for (int i = 0; i < 600; ++i) {
        path += "/d";
    }
    scene.file(path + "/file", "deep");
    EXPECT_TRUE(wpp_test::inChild([&] {
        rlimit few{};
        getrlimit(RLIMIT_NOFILE, &few);
        few.rlim_cur = 40;
        return setrlimit(RLIMIT_NOFILE, &few) == 0 && copy(scene.at("a"), scene.at("b"));
    }));
    EXPECT_EQ(scene.content("b" + path.substr(1) + "/file"), "deep");
}

TEST(QMFileCopy, NoPathIsAnInvalidArgument) {
    FileScene scene;
    const std::string path = scene.file("a");
    const LogCapture log;
    EXPECT_FALSE(QMFileSys::Copy(nullptr, path.c_str(), true, false));
    EXPECT_FALSE(QMFileSys::Copy(path.c_str(), nullptr, true, false));
    EXPECT_FALSE(QMFileSys::Copy("", path.c_str(), true, false));
    EXPECT_FALSE(QMFileSys::Copy(path.c_str(), "", true, false));
    EXPECT_EQ(log.count("[error] Copy()"), 4U);
    EXPECT_EQ(log.count("invalid args"), 4U);
    EXPECT_EQ(scene.content("a"), "content");
}

TEST(QMFileCopy, AnExistingDestinationIsRefusedWhenAsked) {
    FileScene scene;
    scene.file("a", "a");
    scene.file("b", "b");
    scene.folder("c");
    scene.link("d", "none");
    const LogCapture log;
    for (const char* dst : {"b", "c", "d"}) {
        EXPECT_FALSE(copy(scene.at("a"), scene.at(dst), true));
        EXPECT_TRUE(log.contains("Copy()"));
        EXPECT_TRUE(log.contains(": [" + scene.at(dst) + "] is already exist."));
    }
    EXPECT_THAT(scene.below(), ElementsAre("a", "b", "c", "d"));
    EXPECT_EQ(scene.content("b"), "b");
    EXPECT_TRUE(copy(scene.at("a"), scene.at("e"), true));
}

TEST(QMFileCopy, AFileDatedAfter2038IsNoSourceForA32BitClockAndIsNeverOverwrittenUnasked) {
    FileScene scene;
    const std::string later = scene.file("later", "later");
    ASSERT_EQ(std::system(("touch -d 2040-01-01 " + later).c_str()), 0);
    LogCapture log;
    EXPECT_EQ(copy(later, scene.at("copy")), sizeof(std::time_t) == 8);
    EXPECT_EQ(log.contains(" : std library error [75 : "), sizeof(std::time_t) == 4);
    EXPECT_EQ(scene.has("copy"), sizeof(std::time_t) == 8);
    EXPECT_FALSE(copy(scene.file("other", "other"), later, true));
    EXPECT_EQ(scene.content("later"), "later");
}

TEST(QMFileCopy, TheStepForAFileChecksTheDestinationToo) {
    FileScene scene;
    scene.file("a", "a");
    scene.file("b", "b");
    const LogCapture log;
    EXPECT_FALSE(QMFileCopy(true, false).copyFile(scene.at("a").c_str(), scene.at("b").c_str()));
    EXPECT_TRUE(log.contains("[error] copyFile()"));
    EXPECT_TRUE(log.contains("already exist [" + scene.at("b") + "]"));
    EXPECT_EQ(scene.content("b"), "b");
}

TEST(QMFileCopy, TheStepForADirectoryRefusesANullDestination) {
    FileScene scene;
    const LogCapture log;
    EXPECT_FALSE(QMFileCopy(false, false).copyDirectory(scene.top().c_str(), nullptr));
    EXPECT_TRUE(log.contains("[error] copyDirectory()"));
    EXPECT_TRUE(log.contains("dst is NULL!"));
}

TEST(QMFileCopy, ASourceThatCannotBeOpenedIsLoggedWithItsError) {
    FileScene scene;
    scene.folder("closed");
    scene.file("closed/a");
    ASSERT_EQ(chmod(scene.at("closed/a").c_str(), 0), 0);
    const LogCapture log;
    EXPECT_FALSE(copy(scene.at("none"), scene.at("b")));
    EXPECT_TRUE(log.contains("copyFile()"));
    EXPECT_TRUE(log.contains("failed to open [" + scene.at("none") + "]"));
    EXPECT_TRUE(log.contains("std library error [2 : No such file or directory]"));
    EXPECT_TRUE(
        wpp_test::inChildWithoutRights(scene, [&] { return !copy(scene.at("closed/a"), scene.at("b")); }));
    EXPECT_TRUE(log.contains("std library error [13 : Permission denied]"));
    EXPECT_FALSE(scene.has("b"));
}

TEST(QMFileCopy, ASourceThatIsNoFileIsRefusedAndNeverWaitedFor) {
    FileScene scene;
    const std::string fifo = scene.fifo("fifo");
    const LogCapture log;
    EXPECT_FALSE(copy(fifo, scene.at("b")));
    EXPECT_TRUE(log.contains("failed to open [" + fifo + "]"));
    EXPECT_FALSE(copy("/dev/zero", scene.at("b")));
    EXPECT_TRUE(log.contains("failed to open [/dev/zero]"));
    EXPECT_FALSE(QMFileCopy(false, false).copyFile(scene.top().c_str(), scene.at("b").c_str()));
    EXPECT_TRUE(log.contains("[21 : Is a directory]"));
    EXPECT_FALSE(scene.has("b"));
}

TEST(QMFileCopy, ADestinationThatCannotBeWrittenIsLogged) {
    FileScene scene;
    const std::string source = scene.file("a");
    scene.folder("folder");
    const std::string fifo = scene.fifo("fifo");
    const LogCapture log;
    EXPECT_FALSE(copy(source, scene.at("folder")));
    EXPECT_TRUE(log.contains("failed to open [" + scene.at("folder") + "]"));
    EXPECT_FALSE(copy(source, fifo));
    EXPECT_TRUE(log.contains("failed to open [" + fifo + "]"));
    EXPECT_FALSE(copy(source, scene.at("new/")));
    EXPECT_TRUE(log.contains("failed to open [" + scene.at("new/") + "]"));
    EXPECT_FALSE(copy(source, scene.at("a/b")));
    EXPECT_TRUE(log.contains("[17 : File exists] [" + source + "]"));
    EXPECT_THAT(scene.below(), ElementsAre("a", "fifo", "folder"));
}

TEST(QMFileCopy, AFifoThatIsReadIsStillNoDestination) {
    FileScene scene;
    const std::string fifo = scene.fifo("fifo");
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    const LogCapture log;
    EXPECT_FALSE(copy(scene.file("a"), fifo));
    EXPECT_TRUE(log.contains("failed to open [" + fifo + "]"));
    close(reader);
}

TEST(QMFileCopy, AFailedReadIsLogged) {
    FileScene scene;
    const LogCapture log;
    // A file that opens, and whose first page can never be read.
    EXPECT_FALSE(copy("/proc/self/mem", scene.at("b")));
    EXPECT_TRUE(log.contains("copyFile()"));
    EXPECT_TRUE(log.contains("failed to read [/proc/self/mem]"));
}

TEST(QMFileCopy, AFullDeviceIsAFailedWrite) {
    FileScene scene;
    const LogCapture log;
    EXPECT_FALSE(copy(scene.file("a"), "/dev/full"));
    EXPECT_TRUE(log.contains("copyFile()"));
    EXPECT_TRUE(log.contains("failed to write [/dev/full]"));
    EXPECT_TRUE(copy(scene.at("a"), "/dev/null"));
}

TEST(QMFileCopy, AFileThatMayGrowNoFurtherIsAFailedWrite) {
    FileScene scene;
    scene.file("a", std::string(100000, 'a'));
    const LogCapture log;
    EXPECT_TRUE(
        wpp_test::inChildWithFileSizeLimit(65000, [&] { return !copy(scene.at("a"), scene.at("b")); }));
    EXPECT_TRUE(log.contains("failed to write [" + scene.at("b") + "]"));
    EXPECT_EQ(scene.content("a").size(), 100000U);
}

TEST(QMFileCopy, AFullDiskEndsTheCopyOfATree) {
    FileScene scene;
    for (const char* name : {"a/1", "a/2", "a/3"}) {
        scene.file(name, std::string(100000, 'a'));
    }
    const std::string disk = scene.folder("disk");
    const LogCapture log;
    EXPECT_TRUE(wpp_test::inChildWithFullDisk(disk, 65536, [&] { return !copy(scene.at("a"), disk); }));
    EXPECT_EQ(log.count("failed to write [" + disk), 1U);
}

TEST(QMFileCopy, WhatIsLostAtTheEndIsAFailedWrite) {
    FileScene scene;
    scene.file("a");
    {
        const LogCapture log;
        const FailingFileCall fails(FileCall::kClose, EDQUOT);
        EXPECT_FALSE(copy(scene.at("a"), scene.at("b")));
        EXPECT_TRUE(log.contains("failed to write [" + scene.at("b") + "]"));
    }
    const LogCapture log;
    const FailingFileCall fails(FileCall::kFsync, EIO);
    EXPECT_FALSE(copy(scene.at("a"), scene.at("b"), false, true));
    EXPECT_TRUE(log.contains("failed to write [" + scene.at("b") + "]"));
    EXPECT_TRUE(copy(scene.at("a"), scene.at("b"), false, false));
}

TEST(QMFileCopy, ItSyncsWhenAsked) {
    FileScene scene;
    scene.file("a");
    int before = syncCount();
    EXPECT_TRUE(copy(scene.at("a"), scene.at("b"), false, false));
    EXPECT_EQ(syncCount(), before);
    EXPECT_TRUE(copy(scene.at("a"), scene.at("c"), false, true));
    EXPECT_EQ(syncCount(), before + 1);
    before = syncCount();
    // The directories above a file are always on the disk before it.
    EXPECT_TRUE(copy(scene.at("a"), scene.at("x/y/b"), false, false));
    EXPECT_EQ(syncCount(), before + 2);
}

TEST(QMFileCopy, AFileIsNeverCopiedOntoItself) {
    FileScene scene;
    scene.file("a", "hello");
    scene.link("link", "a");
    ASSERT_EQ(link(scene.at("a").c_str(), scene.at("twin").c_str()), 0);
    const LogCapture log;
    EXPECT_FALSE(copy(scene.at("a"), scene.at("a")));
    EXPECT_FALSE(copy(scene.at("a"), scene.at("link")));
    EXPECT_FALSE(copy(scene.at("link"), scene.at("a")));
    EXPECT_FALSE(copy(scene.at("a"), scene.at("twin")));
    EXPECT_EQ(log.count("Copy()"), 4U);
    EXPECT_EQ(log.count("invalid args"), 4U);
    EXPECT_EQ(scene.content("a"), "hello");
}

TEST(QMFileCopy, AFileWithinATreeIsNeverCopiedOntoItself) {
    FileScene scene;
    scene.file("a/file", "hello");
    scene.folder("z");
    ASSERT_EQ(link(scene.at("a/file").c_str(), scene.at("z/file").c_str()), 0);
    const LogCapture log;
    EXPECT_FALSE(copy(scene.at("a"), scene.at("z")));
    EXPECT_TRUE(log.contains("invalid args"));
    EXPECT_EQ(scene.content("a/file"), "hello");
}

TEST(QMFileCopy, ADirectoryIsNeverCopiedIntoItself) {
    FileScene scene;
    scene.file("a/b/c");
    scene.link("link", "a/b");
    scene.link("up", "a");
    scene.directory.enter();
    const LogCapture log;
    const auto before = scene.below();
    for (const char* dst : {"a", "a/new", "a/b/new/newer", "link", "link/new", "up", "up/new", "./a/../a/new",
                            "a/b/../new", "none/../a/new", "link/../new"}) {
        EXPECT_FALSE(copy("a", dst)) << dst;
        EXPECT_FALSE(copy(scene.at("up"), scene.at(dst))) << dst;
    }
    EXPECT_FALSE(copy(".", "new"));
    EXPECT_EQ(log.count("invalid args"), 23U);
    EXPECT_EQ(scene.below(), before);
    EXPECT_TRUE(copy("a", "ab"));
    EXPECT_TRUE(copy("a", "link/../../beside"));
}

TEST(QMFileCopy, ALinkInTheDestinationThatLeadsBackEndsTheCopy) {
    FileScene scene;
    scene.file("a/sub/inner/file");
    scene.folder("z");
    scene.link("z/sub", "../a/sub/inner");
    const LogCapture log;
    EXPECT_FALSE(copy(scene.at("a"), scene.at("z")));
    EXPECT_TRUE(log.contains("copyDirectory()"));
    EXPECT_TRUE(log.contains("invalid args"));
    EXPECT_FALSE(scene.has("a/sub/inner/inner/inner"));
}

TEST(QMFileCopy, WhatIsNeitherFileNorDirectoryEndsTheCopyOfATree) {
    FileScene scene;
    scene.file("a/file");
    scene.fifo("b/fifo");
    scene.link("a/link", "file");
    const LogCapture log;
    EXPECT_FALSE(copy(scene.at("a"), scene.at("z")));
    EXPECT_TRUE(log.contains("error d_type[10][link]"));
    EXPECT_FALSE(copy(scene.at("b"), scene.at("y")));
    EXPECT_TRUE(log.contains("error d_type[1][fifo]"));
}

TEST(QMFileCopy, ATreeIsCopiedWhereNoTypesAreReported) {
    FileScene scene;
    scene.file("a/b/file");
    const LogCapture log;
    const wpp_test::ReaddirHook unknown([](DIR*, dirent* entry) {
        if (entry != nullptr) {
            entry->d_type = DT_UNKNOWN;
        }
        return entry;
    });
    EXPECT_TRUE(copy(scene.at("a"), scene.at("z")));
    EXPECT_TRUE(scene.has("z/b/file"));
}

TEST(QMFileCopy, APathThatWouldGrowTooLongFails) {
    FileScene scene;
    scene.directory.enter();
    scene.file("a/" + std::string(250, 'n'));
    std::string deep = "b";
    while (deep.size() < 3900) {
        deep += "/" + std::string(48, 'd');
    }
    const LogCapture log;
    EXPECT_FALSE(copy("a", deep));
    EXPECT_TRUE(log.contains("failed to open [" + deep.substr(0, 400)));
}

TEST(QMFileCopy, ItKnowsWhetherItMadeTheDestination) {
    FileScene scene;
    scene.file("file");
    scene.file("tree/a");
    scene.file("taken");
    const LogCapture log;
    const auto makes = [&](const char* src, const char* dst) {
        QMFileCopy copying(true, false);
        copying.Copy(scene.at(src).c_str(), scene.at(dst).c_str());
        return copying.hasMadeDestination();
    };
    EXPECT_TRUE(makes("file", "file2"));
    EXPECT_TRUE(makes("tree", "tree2"));
    EXPECT_FALSE(makes("file", "taken"));
    EXPECT_FALSE(makes("none", "none2"));
    EXPECT_FALSE(makes("file", "no/file/"));
}

}  // namespace
