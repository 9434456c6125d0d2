#include "Tests/Support/PrivateRoot.h"

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

namespace wpp_test {
namespace {

constexpr int kNoRoot = -1;

bool enter(const std::filesystem::path& root) {
    return (geteuid() == 0 || unshare(CLONE_NEWUSER) == 0) && chroot(root.c_str()) == 0 && chdir("/") == 0;
}

}  // namespace

int runInPrivateRoot(const std::filesystem::path& root, const std::function<int()>& body) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        if (!enter(root)) {
            std::perror("private root");
            raise(SIGKILL);
        }
        const int result = body();
        std::fflush(stdout);
        _exit(result);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) {
        return kNoRoot;
    }
    return WEXITSTATUS(status);
}

}  // namespace wpp_test
