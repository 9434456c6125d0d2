#include "Simulator/private/Road/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "Tests/Simulator/LoopFixture.h"

namespace simulator {
namespace {

class ChildProcessTest : public LoopTest {
protected:
    std::unique_ptr<ChildProcess> shell(const std::string& script) const {
        return std::make_unique<ChildProcess>("/bin/sh", std::vector<std::string>{"-c", script},
                                              directory.path().string());
    }

    /// Reads to the end of its output.
    static std::string outputOf(ChildProcess& child) {
        const UniqueFd output = child.takeOutput();
        std::string text;
        char chunk[4096];
        for (ssize_t size = ::read(output.get(), chunk, sizeof(chunk)); size > 0;
             size = ::read(output.get(), chunk, sizeof(chunk))) {
            text.append(chunk, static_cast<std::size_t>(size));
        }
        return text;
    }

    std::string endOf(ChildProcess& child) {
        stepUntil([&] {
            loop.step(Milliseconds(1));
            return child.poll().has_value();
        });
        return describeStatus(child.poll().value());
    }
};

TEST_F(ChildProcessTest, RunsInItsDirectoryAndGivesItsOutput) {
    const auto child = shell("pwd -P; echo error >&2");
    EXPECT_EQ(outputOf(*child), std::filesystem::canonical(directory.path()).string() + "\nerror\n");
    EXPECT_EQ(endOf(*child), "status 0");
}

TEST_F(ChildProcessTest, ReadsItsInput) {
    const auto child = shell("read line; echo got $line");
    {
        const UniqueFd input = child->takeInput();
        ASSERT_EQ(::write(input.get(), "this\n", 5), 5);
    }
    EXPECT_EQ(outputOf(*child), "got this\n");
}

TEST_F(ChildProcessTest, TellsHowItEnded) {
    const auto first = shell("exit 3");
    EXPECT_EQ(endOf(*first), "status 3");
    const auto second = shell("kill -9 $$");
    EXPECT_EQ(endOf(*second), "signal 9");
}

TEST_F(ChildProcessTest, DestructorKillsAndReapsIt) {
    auto child = shell("exec sleep 1000");
    const pid_t pid = child->id();
    EXPECT_FALSE(child->poll());
    child.reset();
    EXPECT_EQ(::kill(pid, 0), -1);
}

TEST_F(ChildProcessTest, ProgramThatCannotBeStartedIsThrown) {
    EXPECT_THROW(ChildProcess("/missing/program", {}, "/"), std::system_error);
    EXPECT_THROW(ChildProcess("/bin/true", {}, "/missing"), std::system_error);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);  // nothing is left to reap
}

TEST_F(ChildProcessTest, InheritsNoDescriptorButItsThree) {
    const UniqueFd extra(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const auto child = shell("ls /proc/self/fd | tr '\\n' ' '");
    // The fourth is the directory that ls itself reads.
    EXPECT_EQ(outputOf(*child), "0 1 2 3 ");
}

TEST_F(ChildProcessTest, HasAProcessGroupOfItsOwn) {
    const auto child = shell("read line");
    EXPECT_EQ(::getpgid(child->id()), child->id());
}

TEST_F(ChildProcessTest, DiesWithItsParent) {
    // The shell's child is this program's grandchild; it lives until its own parent, a fork of this program,
    // dies.
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const pid_t parent = ::fork();
    if (parent == 0) {
        const auto child = shell("exec sleep 1000");
        const pid_t pid = child->id();
        const bool told = ::write(ends[1], &pid, sizeof(pid)) == static_cast<ssize_t>(sizeof(pid));
        ::_exit(told ? 0 : 1);  // without the destructor's kill
    }
    pid_t grandchild = -1;
    ASSERT_EQ(::read(ends[0], &grandchild, sizeof(grandchild)), static_cast<ssize_t>(sizeof(grandchild)));
    EXPECT_EQ(::waitpid(parent, nullptr, 0), parent);
    // Nobody may be there to reap it: a zombie has no command line any more.
    EXPECT_TRUE(stepUntil([&] {
        loop.step(Milliseconds(10));
        return ::kill(grandchild, 0) != 0 ||
               readFile("/proc/" + std::to_string(grandchild) + "/stat").find(") Z ") != std::string::npos;
    }));
    ::close(ends[0]);
    ::close(ends[1]);
}

}  // namespace
}  // namespace simulator
