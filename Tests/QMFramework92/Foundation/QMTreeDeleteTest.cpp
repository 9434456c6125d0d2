#include "Foundation/private/QMTreeDelete.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "Foundation/QMDescriptor.h"
#include "Foundation/QMFileSys.h"
#include "Tests/QMFramework92/Foundation/FileCallHooks.h"
#include "Tests/QMFramework92/Foundation/FileScene.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ProcessState.h"
#include "Utility/QMString.h"

namespace {

using testing::ElementsAre;
using wpp_test::FileScene;
using wpp_test::LogCapture;
using wpp_test::ReaddirHook;
using wpp_test::syncCount;

bool deleteTree(const std::string& path, bool doSync = false) {
    return QMFileSys::DeleteDirectory(path.c_str(), doSync);
}

TEST(QMTreeDelete, EverythingBelowGoes) {
    FileScene scene;
    scene.file("tree/a");
    scene.file("tree/.hidden");
    scene.file("tree/b/c/d");
    scene.folder("tree/empty");
    scene.fifo("tree/b/fifo");
    scene.file("beside");
    const LogCapture log;
    const auto before = wpp_test::openDescriptors();
    EXPECT_TRUE(deleteTree(scene.at("tree")));
    EXPECT_THAT(scene.below(), ElementsAre("beside"));
    EXPECT_EQ(wpp_test::openDescriptors(), before);
    EXPECT_TRUE(log.lines().empty());
}

TEST(QMTreeDelete, LinksAreRemovedAndNeverFollowed) {
    FileScene scene;
    scene.file("kept/a");
    scene.link("tree/folder", "../kept");
    scene.link("tree/file", "../kept/a");
    scene.link("tree/nowhere", "none");
    scene.link("tree/self", ".");
    EXPECT_TRUE(deleteTree(scene.at("tree")));
    EXPECT_THAT(scene.below(), ElementsAre("kept", "kept/a"));
}

TEST(QMTreeDelete, ALinkToADirectoryGoesAlone) {
    FileScene scene;
    scene.file("kept/a");
    scene.link("one", "kept");
    scene.link("two", "kept");
    EXPECT_TRUE(deleteTree(scene.at("one")));
    EXPECT_TRUE(deleteTree(scene.at("two") + "//"));
    EXPECT_THAT(scene.below(), ElementsAre("kept", "kept/a"));
}

TEST(QMTreeDelete, WhatIsNoDirectoryStaysAndIsLogged) {
    FileScene scene;
    const LogCapture log;
    EXPECT_FALSE(deleteTree(scene.file("file")));
    EXPECT_FALSE(deleteTree(scene.fifo("fifo")));
    EXPECT_FALSE(deleteTree(scene.link("link", "file")));
    EXPECT_FALSE(deleteTree(scene.link("nowhere", "none")));
    EXPECT_EQ(log.count("[20 : Not a directory]"), 3U);
    EXPECT_TRUE(log.contains(", path[" + scene.at("nowhere") + "], stat()"));
    EXPECT_THAT(scene.below(), ElementsAre("fifo", "file", "link", "nowhere"));
}

TEST(QMTreeDelete, AMissingDirectoryIsLogged) {
    FileScene scene;
    const LogCapture log;
    EXPECT_FALSE(deleteTree(scene.at("none")));
    EXPECT_TRUE(log.contains("DeleteDirectory()"));
    EXPECT_TRUE(log.contains("[2 : No such file or directory] , path[" + scene.at("none") + "], lstat()"));
}

TEST(QMTreeDelete, WithoutAPathItFailsSilently) {
    const LogCapture log;
    EXPECT_FALSE(QMFileSys::DeleteDirectory(nullptr, false));
    EXPECT_FALSE(deleteTree(""));
    EXPECT_TRUE(log.lines().empty());
}

TEST(QMTreeDelete, ATreeWhoseTopWouldStayIsNotTouched) {
    FileScene scene;
    scene.file("tree/a");
    scene.directory.enter();
    const LogCapture log;
    EXPECT_FALSE(deleteTree("tree/."));
    EXPECT_FALSE(deleteTree("tree/.."));
    EXPECT_FALSE(deleteTree("."));
    EXPECT_FALSE(deleteTree("..//"));
    EXPECT_EQ(log.count("DeleteDirectory()"), 4U);
    EXPECT_EQ(log.count("invalid args"), 4U);
    EXPECT_TRUE(scene.has("tree/a"));
}

TEST(QMTreeDelete, TheSlashesAtTheEndDoNotCount) {
    FileScene scene;
    scene.file("tree/a");
    EXPECT_TRUE(deleteTree(scene.at("tree") + "///"));
    EXPECT_FALSE(scene.has("tree"));
}

TEST(QMTreeDelete, ItSyncsOnceWhenAsked) {
    FileScene scene;
    scene.file("one/a");
    scene.file("two/a");
    const LogCapture log;
    const int before = syncCount();
    EXPECT_TRUE(deleteTree(scene.at("one"), true));
    EXPECT_EQ(syncCount(), before + 1);
    EXPECT_TRUE(deleteTree(scene.at("two"), false));
    EXPECT_FALSE(deleteTree(scene.at("none"), true));
    EXPECT_EQ(syncCount(), before + 1);
}

/// Makes `levels` directories one in the other, each with a file, from `top` on.
void digDown(const std::string& top, int levels, const std::string& name) {
    QMDescriptor place(open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int i = 0; i < levels; ++i) {
        ASSERT_EQ(mkdirat(place.get(), name.c_str(), 0700), 0);
        const QMDescriptor file(openat(place.get(), "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        ASSERT_TRUE(file.isValid());
        place.reset(openat(place.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
}

TEST(QMTreeDelete, ATreeMayBeDeeperThanAnyPathIsLong) {
    FileScene scene;
    scene.folder("tree");
    digDown(scene.at("tree"), 2000, std::string(50, 'd'));
    ASSERT_FALSE(HasFatalFailure());
    const wpp_test::LogCapture log;
    EXPECT_TRUE(deleteTree(scene.at("tree")));
    EXPECT_FALSE(scene.has("tree"));
    EXPECT_TRUE(log.lines().empty());
}

TEST(QMTreeDelete, ADeepTreeWithManyBranchesGoes) {
    FileScene scene;
    std::string path = "tree";
    for (int i = 0; i < 40; ++i) {
        path += "/d";
        scene.file(path + "/a/b/c");
        scene.file(path + "/z/y");
    }
    EXPECT_TRUE(deleteTree(scene.at("tree")));
    EXPECT_FALSE(scene.has("tree"));
}

TEST(QMTreeDelete, WhatVanishesMeanwhileCountsAsDeleted) {
    FileScene scene;
    scene.file("tree/a");
    scene.file("tree/b/c");
    const LogCapture log;
    const ReaddirHook vanish([](DIR* directory, dirent* entry) {
        if (entry != nullptr) {
            unlinkat(dirfd(directory), entry->d_name, 0);
        }
        return entry;
    });
    EXPECT_TRUE(deleteTree(scene.at("tree")));
    EXPECT_FALSE(scene.has("tree"));
    EXPECT_TRUE(log.lines().empty());
}

TEST(QMTreeDelete, AReadErrorEndsIt) {
    FileScene scene;
    scene.file("tree/a");
    const LogCapture log;
    const ReaddirHook broken([](DIR*, dirent*) -> dirent* {
        errno = EIO;
        return nullptr;
    });
    EXPECT_FALSE(deleteTree(scene.at("tree")));
    EXPECT_TRUE(log.contains("[5 : Input/output error] , path[" + scene.at("tree") + "], readdir()"));
    EXPECT_TRUE(scene.has("tree/a"));
}

TEST(QMTreeDelete, WhatIsAddedMeanwhileKeepsItsDirectory) {
    FileScene scene;
    scene.folder("tree/b");
    const LogCapture log;
    const ReaddirHook add([&](DIR*, dirent* entry) {
        if (entry == nullptr) {
            scene.file("tree/b/new");
            errno = 0;
        }
        return entry;
    });
    EXPECT_FALSE(deleteTree(scene.at("tree")));
    EXPECT_TRUE(log.contains("[39 : Directory not empty] , path[" + scene.at("tree/b") + "], remove()"));
    EXPECT_TRUE(scene.has("tree/b/new"));
}

TEST(QMTreeDelete, MissingRightsEndItAndAreLogged) {
    FileScene scene;
    scene.file("tree/closed/a");
    const LogCapture log;
    ASSERT_EQ(chmod(scene.folder("tree").c_str(), 0777), 0);
    ASSERT_EQ(chmod(scene.at("tree/closed").c_str(), 0555), 0);
    EXPECT_TRUE(wpp_test::inChildWithoutRights(scene, [&] { return !deleteTree(scene.at("tree")); }));
    EXPECT_TRUE(log.contains("[13 : Permission denied] , path[" + scene.at("tree/closed/a") + "], remove()"));
    ASSERT_EQ(chmod(scene.at("tree/closed").c_str(), 0), 0);
    EXPECT_TRUE(wpp_test::inChildWithoutRights(scene, [&] { return !deleteTree(scene.at("tree")); }));
    EXPECT_TRUE(log.contains("[13 : Permission denied] , path[" + scene.at("tree/closed") + "], opendir()"));
    ASSERT_EQ(chmod(scene.at("tree/closed").c_str(), 0700), 0);
    EXPECT_TRUE(scene.has("tree/closed/a"));
}

TEST(QMTreeDelete, WideAndFrameworkStringsNameTreesToo) {
    FileScene scene;
    scene.file("\xC3\xA9/a");
    scene.file("\xC3\xA8/a");
    scene.directory.enter();
    EXPECT_TRUE(QMFileSys::DeleteDirectory(L"\u00e9", false));
    QMString text("\xC3\xA8", QM_CODE_PAGE_UTF8);
    EXPECT_TRUE(QMFileSys::DeleteDirectory(text, false));
    EXPECT_TRUE(scene.below().empty());
}

}  // namespace
