#include "Benchmarks/RoundTrip/Support/ScratchDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

namespace bench {

ScratchDirectory::ScratchDirectory() : former(std::filesystem::current_path()) {
    std::string name = (std::filesystem::temp_directory_path() / "wpp-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "mkdtemp");
    }
    directory = name;
    std::filesystem::current_path(directory);
}

ScratchDirectory::~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(former, ignored);
    std::filesystem::remove_all(directory, ignored);
}

}  // namespace bench
