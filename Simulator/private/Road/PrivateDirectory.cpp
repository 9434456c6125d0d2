#include "Simulator/private/Road/PrivateDirectory.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "Simulator/private/Io/UniqueFd.h"

namespace simulator {

namespace {

void require(bool condition, const std::string& step) {
    if (!condition) {
        throw std::system_error(errno, std::generic_category(), step);
    }
}

}  // namespace

PrivateDirectory::PrivateDirectory() {
    const char* const parent = std::getenv("TMPDIR");
    directory = std::string(parent != nullptr && *parent != '\0' ? parent : "/tmp") + "/wpp-simulator-XXXXXX";
    require(::mkdtemp(directory.data()) != nullptr, "make a directory like " + directory);
}

PrivateDirectory::~PrivateDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

void PrivateDirectory::write(const std::string& name, const std::string& content) const {
    const std::string file = directory + "/" + name;
    const UniqueFd fd(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    require(static_cast<bool>(fd), "open " + file);
    require(::write(fd.get(), content.data(), content.size()) == static_cast<ssize_t>(content.size()),
            "write " + file);
}

}  // namespace simulator
