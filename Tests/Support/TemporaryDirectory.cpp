#include "Tests/Support/TemporaryDirectory.h"

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <system_error>

namespace wpp_test {

TemporaryDirectory::TemporaryDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "wpp-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("cannot make a temporary directory");
    }
    directory = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
    leave();
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

void TemporaryDirectory::enter() {
    if (formerWorkingDirectory.empty()) {
        formerWorkingDirectory = std::filesystem::current_path();
    }
    std::filesystem::current_path(directory);
}

void TemporaryDirectory::leave() {
    if (!formerWorkingDirectory.empty()) {
        std::error_code ignored;
        std::filesystem::current_path(formerWorkingDirectory, ignored);
        formerWorkingDirectory.clear();
    }
}

}  // namespace wpp_test
