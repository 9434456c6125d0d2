#include "Tests/Support/ProcessState.h"

#include <fcntl.h>

#include <filesystem>
#include <iterator>
#include <string>

namespace wpp_test {

std::set<int> openDescriptors() {
    std::set<int> open;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        open.insert(std::stoi(entry.path().filename().string()));
    }
    // The descriptor that listed the directory is closed again by now.
    for (auto it = open.begin(); it != open.end();) {
        it = fcntl(*it, F_GETFD) == -1 ? open.erase(it) : std::next(it);
    }
    return open;
}

std::size_t threadCount() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

}  // namespace wpp_test
