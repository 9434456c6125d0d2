#include "Foundation/private/QMDirectoryMaker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <string>

#include "Foundation/QMFileSys.h"
#include "Tests/QMFramework92/Foundation/FileCallHooks.h"
#include "Tests/QMFramework92/Foundation/FileScene.h"
#include "Tests/Support/LogCapture.h"
#include "Utility/QMString.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using wpp_test::FileScene;
using wpp_test::LogCapture;
using wpp_test::syncCount;

bool create(const std::string& path, bool doSync = false) {
    return QMFileSys::CreateDirectory(path.c_str(), doSync);
}

TEST(QMDirectoryMaker, EveryMissingComponentIsMade) {
    FileScene scene;
    EXPECT_TRUE(create(scene.at("a/b/c")));
    EXPECT_THAT(scene.below(), ElementsAre("a", "a/b", "a/b/c"));
    EXPECT_TRUE(create(scene.at("a/b/c")));
    EXPECT_TRUE(create(scene.at("a/b/d")));
    EXPECT_THAT(scene.below(), ElementsAre("a", "a/b", "a/b/c", "a/b/d"));
}

TEST(QMDirectoryMaker, ARelativePathStartsAtTheWorkingDirectory) {
    FileScene scene;
    scene.directory.enter();
    EXPECT_TRUE(create("a/b/c"));
    EXPECT_TRUE(create("./a/../d"));
    EXPECT_THAT(scene.below(), ElementsAre("a", "a/b", "a/b/c", "d"));
}

TEST(QMDirectoryMaker, SuperfluousSlashesDoNotCount) {
    FileScene scene;
    EXPECT_TRUE(create("//" + scene.at("a//b///")));
    EXPECT_THAT(scene.below(), ElementsAre("a", "a/b"));
    EXPECT_TRUE(create("/"));
}

TEST(QMDirectoryMaker, ItTellsWhetherItMadeTheLastComponent) {
    FileScene scene;
    EXPECT_EQ(qm_MakeDirectory(scene.at("a/b").c_str(), false), QMMadeDirectory::kMade);
    EXPECT_EQ(qm_MakeDirectory(scene.at("a/b/").c_str(), false), QMMadeDirectory::kExisted);
    EXPECT_EQ(qm_MakeDirectory("/", false), QMMadeDirectory::kExisted);
}

TEST(QMDirectoryMaker, RightsAreEverybodysLessTheUmask) {
    FileScene scene;
    const mode_t former = umask(022);
    EXPECT_TRUE(create(scene.at("a")));
    umask(0);
    EXPECT_TRUE(create(scene.at("b")));
    umask(former);
    struct stat status {};
    ASSERT_EQ(stat(scene.at("a").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0755U);
    ASSERT_EQ(stat(scene.at("b").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0777U);
}

TEST(QMDirectoryMaker, EachNewComponentIsSyncedWhenAsked) {
    FileScene scene;
    const int before = syncCount();
    EXPECT_TRUE(create(scene.at("a/b/c"), true));
    EXPECT_EQ(syncCount(), before + 3);
    EXPECT_TRUE(create(scene.at("a/b/c"), true));
    EXPECT_EQ(syncCount(), before + 3);
    EXPECT_TRUE(create(scene.at("x/y"), false));
    EXPECT_EQ(syncCount(), before + 3);
}

TEST(QMDirectoryMaker, NoPathIsAnInvalidArgument) {
    const LogCapture log;
    EXPECT_FALSE(QMFileSys::CreateDirectory(nullptr, false));
    EXPECT_FALSE(create(""));
    EXPECT_EQ(log.count("[error] CreateDirectory()"), 2U);
    EXPECT_EQ(log.count(": invalid arg"), 2U);
}

TEST(QMDirectoryMaker, AFileInTheWayIsLoggedAndStays) {
    FileScene scene;
    scene.file("a/b");
    const LogCapture log;
    EXPECT_FALSE(create(scene.at("a/b")));
    EXPECT_FALSE(create(scene.at("a/b/c/d")));
    EXPECT_EQ(log.count("CreateDirectory()"), 2U);
    EXPECT_EQ(log.count("[17 : File exists] [" + scene.at("a/b") + "]"), 2U);
    EXPECT_EQ(scene.content("a/b"), "content");
}

TEST(QMDirectoryMaker, ALinkToADirectoryIsOne) {
    FileScene scene;
    scene.folder("real");
    scene.link("link", "real");
    EXPECT_TRUE(create(scene.at("link/a")));
    EXPECT_TRUE(scene.has("real/a"));
    EXPECT_TRUE(create(scene.at("link")));
}

TEST(QMDirectoryMaker, ALinkThatLeadsNowhereIsInTheWay) {
    FileScene scene;
    scene.link("link", "nowhere");
    const LogCapture log;
    EXPECT_FALSE(create(scene.at("link/a")));
    EXPECT_FALSE(create(scene.at("link")));
    EXPECT_EQ(log.count("[17 : File exists] [" + scene.at("link") + "]"), 2U);
    EXPECT_FALSE(scene.has("nowhere"));
}

TEST(QMDirectoryMaker, MissingRightsAreLogged) {
    FileScene scene;
    scene.folder("closed");
    const LogCapture log;
    ASSERT_EQ(chmod(scene.at("closed").c_str(), 0555), 0);
    EXPECT_TRUE(wpp_test::inChildWithoutRights(scene, [&] { return !create(scene.at("closed/a/b")); }));
    EXPECT_TRUE(log.contains("[13 : Permission denied] [" + scene.at("closed/a") + "]"));
    EXPECT_FALSE(scene.has("closed/a"));
}

TEST(QMDirectoryMaker, AComponentMayHave255Bytes) {
    FileScene scene;
    const LogCapture log;
    EXPECT_TRUE(create(scene.at(std::string(254, 'a'))));
    EXPECT_TRUE(create(scene.at(std::string(255, 'a'))));
    EXPECT_FALSE(create(scene.at(std::string(256, 'a'))));
    EXPECT_EQ(log.count("[36 : File name too long] [" + scene.top()), 1U);
}

/// A path of exactly `length` bytes below `top`.
std::string pathOf(std::size_t length, std::string top) {
    while (length - top.size() > 201) {
        top += '/' + std::string(99, 'd');
    }
    return top + '/' + std::string(length - top.size() - 1, 'e');
}

TEST(QMDirectoryMaker, APathMayHaveOneByteLessThanPathMax) {
    FileScene scene;
    EXPECT_TRUE(create(pathOf(PATH_MAX - 1, scene.top())));
}

TEST(QMDirectoryMaker, NothingIsMadeOfALongerPath) {
    FileScene scene;
    LogCapture log;
    for (const std::size_t length :
         {std::size_t{PATH_MAX}, std::size_t{PATH_MAX} + 1, std::size_t{PATH_MAX} * 3}) {
        log.clear();
        EXPECT_FALSE(create(pathOf(length, scene.top())));
        EXPECT_TRUE(log.contains("[36 : File name too long] [" + scene.top()));
    }
    EXPECT_THAT(scene.below(), IsEmpty());
}

TEST(QMDirectoryMaker, WideAndFrameworkStringsNameDirectoriesToo) {
    FileScene scene;
    scene.directory.enter();
    EXPECT_TRUE(QMFileSys::CreateDirectory(L"a/\u00e9", false));
    QMString text("b/\xC3\xA9", QM_CODE_PAGE_UTF8);
    EXPECT_TRUE(QMFileSys::CreateDirectory(text, false));
    EXPECT_THAT(scene.below(), ElementsAre("a", "a/\xC3\xA9", "b", "b/\xC3\xA9"));
}

TEST(QMDirectoryMaker, AWidePathThatDoesNotFitIsNeverUsedCut) {
    FileScene scene;
    scene.directory.enter();
    const LogCapture log;
    std::wstring path = L"a";
    while (path.size() < PATH_MAX) {
        path += L"/a";
    }
    EXPECT_FALSE(QMFileSys::CreateDirectory(path.c_str(), false));
    EXPECT_TRUE(log.contains("invalid arg"));
    EXPECT_THAT(scene.below(), IsEmpty());
}

}  // namespace
