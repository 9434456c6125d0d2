#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>

namespace wpp_test {

/// The number of this process's threads whose name, as the operating system shows it, begins with `prefix`. A
/// joined thread may stay listed for a moment.
inline std::size_t threadsNamed(const std::string& prefix) {
    std::size_t count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream in(task.path() / "comm");
        std::string name;
        std::getline(in, name);
        count += name.rfind(prefix, 0) == 0 ? 1 : 0;
    }
    return count;
}

}  // namespace wpp_test
