#include "Simulator/private/Road/PrivateDirectory.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "Tests/Simulator/LoopFixture.h"

namespace simulator {
namespace {

/// A directory of the test stands for the system's temporary one.
class PrivateDirectoryTest : public LoopTest {
protected:
    PrivateDirectoryTest() { ::setenv("TMPDIR", directory.path().c_str(), 1); }
    ~PrivateDirectoryTest() override { ::unsetenv("TMPDIR"); }

    static unsigned modeOf(const std::string& path) {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0);
        return status.st_mode & 0777u;
    }
};

TEST_F(PrivateDirectoryTest, IsTheUsersOwnAndLiesInTheTemporaryDirectory) {
    const PrivateDirectory made;
    EXPECT_EQ(std::filesystem::path(made.path()).parent_path(), directory.path());
    EXPECT_EQ(modeOf(made.path()), 0700u);
}

TEST_F(PrivateDirectoryTest, FilesAreTheUsersOwn) {
    const PrivateDirectory made;
    made.write("secret.key", "content");
    EXPECT_EQ(modeOf(made.path() + "/secret.key"), 0600u);
    std::ifstream file(made.path() + "/secret.key");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "content");
}

TEST_F(PrivateDirectoryTest, GoesWithAllThatIsInIt) {
    std::string path;
    {
        const PrivateDirectory made;
        path = made.path();
        made.write("file", "content");
        std::filesystem::create_directory(path + "/sub");
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(PrivateDirectoryTest, FailureToMakeItOrToWriteIsThrown) {
    const PrivateDirectory made;
    EXPECT_THROW(made.write("missing/file", ""), std::system_error);
    ::setenv("TMPDIR", (directory.path() / "missing").c_str(), 1);
    EXPECT_THROW(PrivateDirectory(), std::system_error);
}

}  // namespace
}  // namespace simulator
