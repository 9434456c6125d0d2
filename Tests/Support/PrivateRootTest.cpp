#include "Tests/Support/PrivateRoot.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

#include "Tests/Support/TemporaryDirectory.h"

using wpp_test::runInPrivateRoot;
using wpp_test::TemporaryDirectory;

TEST(PrivateRoot, WhatTheBodyWritesUnderTheRootLiesInTheDirectory) {
    const TemporaryDirectory directory;
    EXPECT_EQ(7, runInPrivateRoot(directory.path(), [] {
                  std::ofstream("/made") << "here";
                  return 7;
              }));
    EXPECT_TRUE(std::filesystem::exists(directory.path() / "made"));
}

TEST(PrivateRoot, ABodyThatIsKilledIsReported) {
    const TemporaryDirectory directory;
    EXPECT_EQ(-1, runInPrivateRoot(directory.path(), []() -> int { return raise(SIGKILL); }));
}

TEST(PrivateRoot, ADirectoryThatIsMissingIsReported) {
    const TemporaryDirectory directory;
    EXPECT_EQ(-1, runInPrivateRoot(directory.path() / "missing", [] { return 0; }));
}
