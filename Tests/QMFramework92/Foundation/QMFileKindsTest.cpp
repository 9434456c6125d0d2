#include "Foundation/private/QMFileKinds.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "Tests/QMFramework92/Foundation/FileScene.h"

namespace {

using wpp_test::FileScene;

TEST(QMFileKinds, OnlyFilesAndDirectoriesHaveAKind) {
    EXPECT_EQ(qm_KindOf(S_IFREG | 0644), 32);
    EXPECT_EQ(qm_KindOf(S_IFDIR | 0755), 4);
    for (const unsigned mode : {S_IFLNK + 0U, S_IFIFO + 0U, S_IFSOCK + 0U, S_IFCHR + 0U, S_IFBLK + 0U}) {
        EXPECT_EQ(qm_KindOf(mode), 0);
    }
}

TEST(QMFileKinds, ADirectorysOwnEntriesAreTold) {
    EXPECT_TRUE(qm_IsDotOrDotDot("."));
    EXPECT_TRUE(qm_IsDotOrDotDot(".."));
    for (const char* name : {"", "...", ".a", "a.", "..a"}) {
        EXPECT_FALSE(qm_IsDotOrDotDot(name)) << name;
    }
}

TEST(QMFileKinds, APathIsTakenByAnythingAtAll) {
    FileScene scene;
    EXPECT_TRUE(qm_IsTaken(scene.file("file").c_str()));
    EXPECT_TRUE(qm_IsTaken(scene.fifo("fifo").c_str()));
    EXPECT_TRUE(qm_IsTaken(scene.link("link", "none").c_str()));
    EXPECT_TRUE(qm_IsTaken("/dev/null"));
    EXPECT_FALSE(qm_IsTaken(scene.at("none").c_str()));
}

TEST(QMFileKinds, WhatIsDatedAfter2038IsTakenOnEveryMachine) {
    FileScene scene;
    const std::string path = scene.file("file");
    ASSERT_EQ(std::system(("touch -d 2040-01-01 " + path).c_str()), 0);
    struct stat status {};
    const bool hasStatus = stat(path.c_str(), &status) == 0;
    EXPECT_EQ(hasStatus, sizeof(std::time_t) == 8);
    EXPECT_TRUE(qm_IsTaken(path.c_str()));
}

}  // namespace
