#include "Tests/QMFramework92/Foundation/FileScene.h"

#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iterator>

namespace wpp_test {

namespace fs = std::filesystem;

std::string FileScene::file(const std::string& path, const std::string& content) {
    folder(fs::path(path).parent_path().string());
    std::ofstream(at(path), std::ios::binary) << content;
    return at(path);
}

std::string FileScene::folder(const std::string& path) {
    fs::create_directories(at(path));
    return at(path);
}

std::string FileScene::link(const std::string& path, const std::string& target) {
    folder(fs::path(path).parent_path().string());
    fs::create_symlink(target, at(path));
    return at(path);
}

std::string FileScene::fifo(const std::string& path) {
    folder(fs::path(path).parent_path().string());
    mkfifo(at(path).c_str(), 0600);
    return at(path);
}

std::string FileScene::content(const std::string& path) const {
    std::ifstream in(at(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

bool FileScene::has(const std::string& path) const {
    return fs::symlink_status(at(path)).type() != fs::file_type::not_found;
}

std::vector<std::string> FileScene::below(const std::string& path) const {
    std::vector<std::string> all;
    for (const auto& entry : fs::recursive_directory_iterator(at(path))) {
        all.push_back(entry.path().lexically_relative(at(path)).string());
    }
    std::sort(all.begin(), all.end());
    return all;
}

bool inChild(const std::function<bool()>& action) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        const bool result = action();
        std::fflush(stdout);
        _exit(result ? 0 : 1);
    }
    int status = -1;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool inChildWithoutRights(const FileScene& scene, const std::function<bool()>& action) {
    constexpr uid_t kNobody = 65534;
    chmod(scene.top().c_str(), 0777);
    return inChild([&] {
        const bool isRoot = geteuid() == 0;
        return (!isRoot || (setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 && setuid(kNobody) == 0)) &&
               action();
    });
}

bool inChildWithFileSizeLimit(unsigned bytes, const std::function<bool()>& action) {
    return inChild([&] {
        const rlimit limit{bytes, bytes};
        return std::signal(SIGXFSZ, SIG_IGN) != SIG_ERR && setrlimit(RLIMIT_FSIZE, &limit) == 0 && action();
    });
}

namespace {

/// Root in a world of one's own, where one may mount. @return whether the system allows it.
bool becomeRootAmongOwnMounts() {
    const auto user = std::to_string(geteuid());
    const auto group = std::to_string(getegid());
    if (geteuid() == 0) {
        return unshare(CLONE_NEWNS) == 0;
    }
    if (unshare(CLONE_NEWNS | CLONE_NEWUSER) != 0) {
        return false;
    }
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " + user + " 1";
    std::ofstream("/proc/self/gid_map") << "0 " + group + " 1";
    return geteuid() == 0;
}

bool mountSmall(const std::string& folder, unsigned bytes) {
    const std::string size = "size=" + std::to_string(bytes);
    return becomeRootAmongOwnMounts() && mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("small", folder.c_str(), "tmpfs", 0, size.c_str()) == 0;
}

}  // namespace

bool inChildWithFullDisk(const std::string& folder, unsigned bytes, const std::function<bool()>& action) {
    if (inChild([&] { return mountSmall(folder, bytes); })) {
        return inChild([&] { return mountSmall(folder, bytes) && action(); });
    }
    return inChildWithFileSizeLimit(bytes, action);
}

}  // namespace wpp_test
