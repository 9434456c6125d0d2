// Runs a fuzz target over every file of its corpus: replay-TARGET CORPUS. Fails when there is none.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> filesOf(const fs::path& directory) {
    std::vector<fs::path> files;
    if (fs::is_directory(directory)) {
        for (const auto& entry : fs::directory_iterator(directory)) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

/// @return whether the file could be read.
bool replay(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        return false;
    }
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    // The name is seen when the input ends the process.
    std::printf("%s\n", file.filename().c_str());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    return true;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2) {
        std::fprintf(stderr, "usage: %s CORPUS\n", arguments[0]);
        return 2;
    }
    // A target may change the working directory.
    const std::vector<fs::path> files = filesOf(fs::absolute(arguments[1]));
    if (files.empty()) {
        std::fprintf(stderr, "%s holds no input\n", arguments[1]);
        return 1;
    }
    LLVMFuzzerTestOneInput(nullptr, 0);
    const bool allRead = std::all_of(files.begin(), files.end(), replay);
    return allRead ? 0 : 1;
}
