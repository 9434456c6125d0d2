#include "Simulator/private/Road/ProcessFigures.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace simulator {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kSlackKb = 2048;

std::size_t entriesOf(const std::string& directory) {
    std::error_code gone;
    std::size_t count = 0;
    for (fs::directory_iterator entry(directory, gone); !gone && entry != fs::directory_iterator();
         entry.increment(gone)) {
        ++count;
    }
    return count;
}

}  // namespace

ProcessFigures ProcessFigures::of(pid_t process) {
    const std::string directory = "/proc/" + std::to_string(process);
    std::size_t pages = 0;
    std::ifstream(directory + "/statm") >> pages >> pages;  // the second number is what is resident
    const auto pageKb = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) / 1024;
    return {pages * pageKb, entriesOf(directory + "/fd"), entriesOf(directory + "/task")};
}

std::string ProcessFigures::describe() const {
    char megabytes[32];
    std::snprintf(megabytes, sizeof(megabytes), "%.1f MB, ", static_cast<double>(memoryKb) / 1024);
    return megabytes + std::to_string(descriptors) + " descriptors, " + std::to_string(threads) + " threads";
}

bool ProcessFigures::exceed(const ProcessFigures& earlier) const {
    return memoryKb > earlier.memoryKb + earlier.memoryKb / 10 + kSlackKb ||
           descriptors > earlier.descriptors || threads > earlier.threads;
}

}  // namespace simulator
