#include "Foundation/QMFileSys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "Tests/QMFramework92/Foundation/FileCallHooks.h"
#include "Tests/QMFramework92/Foundation/FileScene.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ProcessState.h"
#include "Utility/QMString.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using wpp_test::FailingFileCall;
using wpp_test::FileCall;
using wpp_test::FileScene;
using wpp_test::LogCapture;
using wpp_test::ReaddirHook;
using wpp_test::syncCount;

bool move(const std::string& src, const std::string& dst) {
    return QMFileSys::Move(src.c_str(), dst.c_str());
}

// Free space

TEST(QMFileSys, TheRoomOfAFileSystemIsCountedInBytes) {
    FileScene scene;
    struct statvfs status {};
    ASSERT_EQ(statvfs(scene.top().c_str(), &status), 0);
    QMDiskSpace space{};
    ASSERT_TRUE(QMFileSys::GetDiskFreeSpace(scene.top().c_str(), space));
    EXPECT_EQ(space.total, std::uint64_t{status.f_blocks} * status.f_bsize);
    EXPECT_LE(space.available, space.free);
    EXPECT_LE(space.free, space.total);
    EXPECT_GT(space.total, 0U);
}

TEST(QMFileSys, TheRoomOfAMissingPathIsLogged) {
    FileScene scene;
    const LogCapture log;
    QMDiskSpace space{1, 2, 3};
    EXPECT_FALSE(QMFileSys::GetDiskFreeSpace(scene.at("none").c_str(), space));
    EXPECT_TRUE(log.contains("GetDiskFreeSpace()"));
    EXPECT_TRUE(log.contains("[2 : No such file or directory] , path[" + scene.at("none") + "], statfs()"));
    EXPECT_EQ(space.available, 1U);
    EXPECT_EQ(space.total, 2U);
    EXPECT_EQ(space.free, 3U);
}

TEST(QMFileSys, TheRoomOfNoPathFailsSilently) {
    const LogCapture log;
    QMDiskSpace space{};
    EXPECT_FALSE(QMFileSys::GetDiskFreeSpace(nullptr, space));
    EXPECT_FALSE(QMFileSys::GetDiskFreeSpace("", space));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(QMFileSys::GetDiskFreeSpace(L"/", space));
}

// Kind of a path

TEST(QMFileSys, APathIsAFileADirectoryOrNeither) {
    FileScene scene;
    const LogCapture log;
    EXPECT_EQ(QMFileSys::chkAttribute(scene.file("file").c_str()), 32);
    EXPECT_EQ(QMFileSys::chkAttribute(scene.folder("folder").c_str()), 4);
    EXPECT_EQ(QMFileSys::chkAttribute(scene.fifo("fifo").c_str()), 0);
    EXPECT_EQ(QMFileSys::chkAttribute("/dev/null"), 0);
    EXPECT_EQ(QMFileSys::chkAttribute(scene.link("l1", "file").c_str()), 32);
    EXPECT_EQ(QMFileSys::chkAttribute(scene.link("l2", "folder").c_str()), 4);
    EXPECT_TRUE(log.lines().empty());
}

TEST(QMFileSys, AMissingPathIsSilentlyNothing) {
    FileScene scene;
    const LogCapture log;
    EXPECT_EQ(QMFileSys::chkAttribute(scene.at("none").c_str()), 0);
    EXPECT_EQ(QMFileSys::chkAttribute(scene.link("link", "none").c_str()), 0);
    EXPECT_EQ(QMFileSys::chkAttribute(nullptr), 0);
    EXPECT_EQ(QMFileSys::chkAttribute(""), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST(QMFileSys, APathThatCannotBeLookedAtIsLogged) {
    FileScene scene;
    const std::string circle = scene.link("circle", "circle");
    scene.file("file");
    const LogCapture log;
    EXPECT_EQ(QMFileSys::chkAttribute(circle.c_str()), 0);
    EXPECT_TRUE(log.contains("chkAttribute()"));
    EXPECT_TRUE(log.contains(", path[" + circle + "], stat()"));
    EXPECT_EQ(QMFileSys::chkAttribute(scene.at("file/a").c_str()), 0);
    EXPECT_TRUE(log.contains("[20 : Not a directory] , path[" + scene.at("file/a") + "], stat()"));
}

TEST(QMFileSys, WideAndFrameworkStringsNamePathsToo) {
    FileScene scene;
    scene.file("\xC3\xA9");
    scene.directory.enter();
    EXPECT_EQ(QMFileSys::chkAttribute(L"\u00e9"), 32);
    QMString text("\xC3\xA9", QM_CODE_PAGE_UTF8);
    EXPECT_EQ(QMFileSys::chkAttribute(text), 32);
    EXPECT_TRUE(QMFileSys::Copy(L"\u00e9", L"\u00e8", true, false));
    EXPECT_TRUE(QMFileSys::Move(L"\u00e8", "a"));
    EXPECT_TRUE(QMFileSys::Delete(text, false));
    EXPECT_THAT(scene.below(), ElementsAre("a"));
}

TEST(QMFileSys, AStringOfAnotherCodePageLogsItselfAndIsNoPath) {
    const LogCapture log;
    QMString narrow("/", 33);
    EXPECT_EQ(QMFileSys::chkAttribute(narrow), 0);
    EXPECT_EQ(log.lines().size(), 1U);
    EXPECT_TRUE(log.contains("faild to convert"));
}

// Delete

TEST(QMFileSys, DeleteRemovesAFile) {
    FileScene scene;
    const int before = syncCount();
    EXPECT_TRUE(QMFileSys::Delete(scene.file("a").c_str(), false));
    EXPECT_EQ(syncCount(), before);
    EXPECT_TRUE(QMFileSys::Delete(scene.file("b").c_str(), true));
    EXPECT_EQ(syncCount(), before + 1);
    EXPECT_THAT(scene.below(), IsEmpty());
}

TEST(QMFileSys, DeleteKeepsADirectory) {
    FileScene scene;
    const std::string path = scene.folder("a");
    const LogCapture log;
    EXPECT_FALSE(QMFileSys::Delete(path.c_str(), false));
    EXPECT_TRUE(log.contains("[error] Delete()"));
    EXPECT_TRUE(log.contains("this is not file [" + path + "]"));
    EXPECT_GT(log.count("dumpDirectly()"), 0U);
    EXPECT_LE(log.count("dumpDirectly()"), 10U);
    EXPECT_TRUE(scene.has("a"));
}

TEST(QMFileSys, DeleteRefusesWhatIsNoFile) {
    FileScene scene;
    const LogCapture log;
    EXPECT_FALSE(QMFileSys::Delete(scene.fifo("fifo").c_str(), false));
    EXPECT_FALSE(QMFileSys::Delete(scene.link("link", "none").c_str(), false));
    EXPECT_FALSE(QMFileSys::Delete(scene.at("none").c_str(), false));
    EXPECT_EQ(log.count("this is not file"), 3U);
    EXPECT_THAT(scene.below(), ElementsAre("fifo", "link"));
}

TEST(QMFileSys, DeleteOfALinkToAFileKeepsTheFile) {
    FileScene scene;
    scene.file("file");
    EXPECT_TRUE(QMFileSys::Delete(scene.link("link", "file").c_str(), false));
    EXPECT_THAT(scene.below(), ElementsAre("file"));
}

TEST(QMFileSys, DeleteOfNoPathFailsSilently) {
    const LogCapture log;
    EXPECT_FALSE(QMFileSys::Delete(nullptr, true));
    EXPECT_FALSE(QMFileSys::Delete("", true));
    EXPECT_TRUE(log.lines().empty());
}

TEST(QMFileSys, AFailedDeleteIsLogged) {
    FileScene scene;
    const std::string path = scene.file("closed/a");
    const LogCapture log;
    ASSERT_EQ(chmod(scene.at("closed").c_str(), 0555), 0);
    EXPECT_TRUE(wpp_test::inChildWithoutRights(scene, [&] {
        const int before = syncCount();
        return !QMFileSys::Delete(path.c_str(), true) && syncCount() == before;
    }));
    EXPECT_TRUE(log.contains("[13 : Permission denied] , path[" + path + "], remove()"));
    EXPECT_TRUE(scene.has("closed/a"));
    chmod(scene.at("closed").c_str(), 0755);
}

// Move

TEST(QMFileSys, MoveOfAFileLeavesNoSource) {
    FileScene scene;
    scene.file("a", "hello");
    const int before = syncCount();
    EXPECT_TRUE(move(scene.at("a"), scene.at("new/b")));
    EXPECT_THAT(scene.below(), ElementsAre("new", "new/b"));
    EXPECT_EQ(scene.content("new/b"), "hello");
    EXPECT_GT(syncCount(), before);
}

TEST(QMFileSys, MoveOfADirectoryLeavesNoSource) {
    FileScene scene;
    scene.file("a/one", "1");
    scene.file("a/b/two", "2");
    scene.folder("a/empty");
    EXPECT_TRUE(move(scene.at("a"), scene.at("z")));
    EXPECT_THAT(scene.below(), ElementsAre("z", "z/b", "z/b/two", "z/empty", "z/one"));
    EXPECT_EQ(scene.content("z/b/two"), "2");
}

TEST(QMFileSys, MoveOntoAnExistingPathLeavesBoth) {
    FileScene scene;
    scene.file("a", "a");
    scene.file("b", "b");
    scene.file("c/d", "d");
    const LogCapture log;
    EXPECT_FALSE(move(scene.at("a"), scene.at("b")));
    EXPECT_TRUE(log.contains("[error] Move()"));
    EXPECT_TRUE(log.contains(": [" + scene.at("b") + "] is already exist."));
    EXPECT_FALSE(move(scene.at("a"), scene.at("c")));
    EXPECT_FALSE(move(scene.at("a"), scene.at("a")));
    EXPECT_EQ(log.count("is already exist."), 3U);
    EXPECT_THAT(scene.below(), ElementsAre("a", "b", "c", "c/d"));
    EXPECT_EQ(scene.content("b"), "b");
}

TEST(QMFileSys, MoveOntoAnythingAtAllLeavesIt) {
    FileScene scene;
    scene.file("a");
    scene.fifo("fifo");
    scene.link("nowhere", "none");
    const LogCapture log;
    EXPECT_FALSE(move(scene.at("a"), scene.at("fifo")));
    EXPECT_FALSE(move(scene.at("a"), scene.at("nowhere")));
    EXPECT_FALSE(move(scene.at("a"), "/dev/null"));
    EXPECT_EQ(log.count("is already exist."), 3U);
    EXPECT_THAT(scene.below(), ElementsAre("a", "fifo", "nowhere"));
}

TEST(QMFileSys, MoveOfNoPathFailsSilently) {
    FileScene scene;
    scene.file("a");
    const LogCapture log;
    EXPECT_FALSE(QMFileSys::Move(nullptr, scene.at("b").c_str()));
    EXPECT_FALSE(QMFileSys::Move("", scene.at("b").c_str()));
    EXPECT_FALSE(QMFileSys::Move(scene.at("a").c_str(), nullptr));
    EXPECT_FALSE(QMFileSys::Move(scene.at("a").c_str(), ""));
    EXPECT_TRUE(log.lines().empty());
}

TEST(QMFileSys, MoveOfAMissingSourceIsLogged) {
    FileScene scene;
    const LogCapture log;
    EXPECT_FALSE(move(scene.at("none"), scene.at("b")));
    EXPECT_TRUE(log.contains("failed to open [" + scene.at("none") + "]"));
    EXPECT_TRUE(log.contains("[2 : No such file or directory] dst [" + scene.at("b") + "]"));
    EXPECT_THAT(scene.below(), IsEmpty());
}

TEST(QMFileSys, MoveIntoItselfIsRefusedAndMakesNothing) {
    FileScene scene;
    scene.file("a/b/c");
    const LogCapture log;
    EXPECT_FALSE(move(scene.at("a"), scene.at("a/b/new")));
    EXPECT_TRUE(log.contains("invalid args"));
    EXPECT_TRUE(log.contains("dst [" + scene.at("a/b/new") + "]"));
    EXPECT_THAT(scene.below(), ElementsAre("a", "a/b", "a/b/c"));
}

TEST(QMFileSys, MoveOfADirectoryWithALinkKeepsAllOfIt) {
    FileScene scene;
    scene.file("a/file");
    scene.file("a/sub/file");
    scene.link("a/link", "file");
    const LogCapture log;
    EXPECT_FALSE(move(scene.at("a"), scene.at("z")));
    EXPECT_TRUE(log.contains("error d_type[10][link]"));
    EXPECT_TRUE(log.contains("dst [" + scene.at("z") + "]"));
    EXPECT_THAT(scene.below(), ElementsAre("a", "a/file", "a/link", "a/sub", "a/sub/file"));
}

TEST(QMFileSys, MoveOfAHalfReadDirectoryKeepsAllOfIt) {
    FileScene scene;
    scene.file("a/file");
    const LogCapture log;
    {
        bool isBroken = false;
        const ReaddirHook broken([&](DIR*, dirent* entry) {
            // The copy meets the error; the deletion of what it made does not.
            const bool breaks = entry == nullptr && !isBroken;
            isBroken = isBroken || breaks;
            errno = breaks ? EIO : errno;
            return entry;
        });
        EXPECT_FALSE(move(scene.at("a"), scene.at("z")));
    }
    EXPECT_TRUE(log.contains("readdir()"));
    EXPECT_THAT(scene.below(), ElementsAre("a", "a/file"));
}

TEST(QMFileSys, MoveOfASourceThatCannotBeDeletedKeepsTheCopy) {
    FileScene scene;
    scene.file("closed/a", "hello");
    scene.folder("closed/tree");
    ASSERT_EQ(chmod(scene.at("closed").c_str(), 0555), 0);
    const LogCapture log;
    EXPECT_TRUE(wpp_test::inChildWithoutRights(scene, [&] {
        return !move(scene.at("closed/a"), scene.at("b")) && !move(scene.at("closed/tree"), scene.at("c"));
    }));
    EXPECT_TRUE(log.contains("[13 : Permission denied] src [" + scene.at("closed/a") + "]"));
    EXPECT_TRUE(log.contains("[13 : Permission denied] src [" + scene.at("closed/tree") + "]"));
    EXPECT_EQ(scene.content("b"), "hello");
    EXPECT_THAT(scene.below(), ElementsAre("b", "c", "closed", "closed/a", "closed/tree"));
    chmod(scene.at("closed").c_str(), 0755);
}

TEST(QMFileSys, MoveOfALinkCopiesWhatItLeadsTo) {
    FileScene scene;
    scene.file("file", "hello");
    scene.file("folder/a");
    scene.link("l1", "file");
    scene.link("l2", "folder");
    EXPECT_TRUE(move(scene.at("l1"), scene.at("m1")));
    EXPECT_TRUE(move(scene.at("l2"), scene.at("m2")));
    EXPECT_THAT(scene.below(), ElementsAre("file", "folder", "folder/a", "m1", "m2", "m2/a"));
    EXPECT_EQ(scene.content("m1"), "hello");
}

TEST(QMFileSys, MoveNeverDeletesWhatDidNotReachTheDisk) {
    FileScene scene;
    scene.file("a", "hello");
    for (const FileCall call : {FileCall::kFsync, FileCall::kClose}) {
        const LogCapture log;
        const FailingFileCall fails(call, EIO);
        EXPECT_FALSE(move(scene.at("a"), scene.at("b")));
        EXPECT_TRUE(log.contains("failed to write [" + scene.at("b") + "]"));
        EXPECT_TRUE(log.contains("[5 : Input/output error] dst [" + scene.at("b") + "]"));
        EXPECT_THAT(scene.below(), ElementsAre("a"));
    }
}

TEST(QMFileSys, MoveToAFullDiskKeepsTheSourceAndCleansUp) {
    FileScene scene;
    scene.file("a/file", std::string(100000, 'a'));
    const std::string disk = scene.folder("disk");
    const LogCapture log;
    EXPECT_TRUE(wpp_test::inChildWithFullDisk(disk, 65536, [&] {
        return !move(scene.at("a"), scene.at("disk/b")) && !scene.has("disk/b") &&
               !move(scene.at("a/file"), scene.at("disk/c")) && !scene.has("disk/c");
    }));
    EXPECT_EQ(log.count("failed to write [" + disk), 2U);
    EXPECT_EQ(scene.content("a/file").size(), 100000U);
}

TEST(QMFileSys, NoOperationKeepsADescriptor) {
    FileScene scene;
    scene.file("a/b/c");
    scene.link("bad/link", "none");
    const LogCapture log;
    const auto before = wpp_test::openDescriptors();
    EXPECT_TRUE(move(scene.at("a"), scene.at("z")));
    EXPECT_FALSE(move(scene.at("bad"), scene.at("y")));
    EXPECT_FALSE(move(scene.at("z"), scene.at("z/b/x")));
    EXPECT_EQ(wpp_test::openDescriptors(), before);
}

}  // namespace
