#include "Tests/Support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace {

using wpp_test::TemporaryDirectory;
namespace fs = std::filesystem;

TEST(TemporaryDirectory, EachOneIsNewAndEmpty) {
    const TemporaryDirectory first;
    const TemporaryDirectory second;
    EXPECT_NE(first.path(), second.path());
    EXPECT_TRUE(fs::is_empty(first.path()));
}

TEST(TemporaryDirectory, IsRemovedWithAllItHolds) {
    fs::path path;
    {
        const TemporaryDirectory directory;
        path = directory.path();
        fs::create_directory(path / "inner");
        std::ofstream(path / "inner" / "file") << "text";
    }
    EXPECT_FALSE(fs::exists(path));
}

TEST(TemporaryDirectory, EndRestoresTheWorkingDirectory) {
    const fs::path before = fs::current_path();
    {
        TemporaryDirectory directory;
        directory.enter();
        EXPECT_EQ(fs::current_path(), fs::canonical(directory.path()));
    }
    EXPECT_EQ(fs::current_path(), before);
}

}  // namespace
