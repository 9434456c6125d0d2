#include "Foundation/private/QMCopyPaths.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "Tests/QMFramework92/Foundation/FileScene.h"

namespace {

using wpp_test::FileScene;

class QMCopyPaths : public testing::Test {
protected:
    QMCopyPaths() {
        scene.file("a/b/file");
        scene.link("to_b", "a/b");
        scene.directory.enter();
    }

    FileScene scene;
};

TEST_F(QMCopyPaths, ADirectoryIsAboveWhatLiesOrWouldLieInIt) {
    for (const char* dst : {"a", "a/", "a/b", "a/new", "a/b/new/newer/", "to_b", "to_b/new", "a/b/file"}) {
        EXPECT_TRUE(qm_LeadsIntoItself("a", dst)) << dst;
    }
    EXPECT_TRUE(qm_LeadsIntoItself(".", "new"));
    EXPECT_TRUE(qm_LeadsIntoItself("/", "new"));
    EXPECT_TRUE(qm_LeadsIntoItself(scene.top().c_str(), "a/b/new"));
}

TEST_F(QMCopyPaths, ADirectoryIsNotAboveWhatLiesElsewhere) {
    for (const char* dst : {"ab", "new", "./new/newer", "/new", "..", "to_b/../../new"}) {
        EXPECT_FALSE(qm_LeadsIntoItself("a", dst)) << dst;
    }
    EXPECT_FALSE(qm_LeadsIntoItself("a/b", "a/new"));
}

TEST_F(QMCopyPaths, WhereAPartStillToBeMadeGoesUpNobodyKnows) {
    EXPECT_TRUE(qm_LeadsIntoItself("a", "new/../b"));
    EXPECT_TRUE(qm_LeadsIntoItself("a", "new/.."));
}

TEST_F(QMCopyPaths, AFileIsOnlyItself) {
    EXPECT_TRUE(qm_LeadsIntoItself("a/b/file", "to_b/file"));
    EXPECT_FALSE(qm_LeadsIntoItself("a/b/file", "a/b/other"));
    EXPECT_FALSE(qm_LeadsIntoItself("a/b/file", "a/b/file/other"));
}

TEST_F(QMCopyPaths, AMissingSourceLeadsNowhere) {
    EXPECT_FALSE(qm_LeadsIntoItself("none", "none"));
    EXPECT_FALSE(qm_LeadsIntoItself("none", "a"));
}

TEST_F(QMCopyPaths, APathThatNothingCanBeMadeOfLeadsNowhere) {
    std::string dst = "a/b";
    while (dst.size() < PATH_MAX) {
        dst += "/d";
    }
    EXPECT_FALSE(qm_LeadsIntoItself("a", dst.c_str()));
}

}  // namespace
