#include "Simulator/private/Torture/ProcessUsage.h"

#include <filesystem>
#include <fstream>
#include <limits>
#include <system_error>

namespace simulator {

namespace {

namespace fs = std::filesystem;

std::size_t countThreads(const fs::path& directory) {
    std::error_code error;
    std::size_t count = 0;
    for (fs::directory_iterator entry(directory, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        ++count;
    }
    return count;
}

void countDescriptors(const fs::path& directory, ProcessUsage& usage) {
    std::error_code error;
    for (fs::directory_iterator entry(directory, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        std::error_code closed;
        const fs::path target = fs::read_symlink(entry->path(), closed);
        if (closed) {
            continue;
        }
        ++(target == "anon_inode:[eventpoll]" ? usage.waits : usage.descriptors);
    }
}

/// The field of the file that adds up all mappings, in KiB.
long memoryField(const fs::path& file, const std::string& name) {
    std::ifstream in(file);
    std::string field;
    while (in >> field) {
        long value = 0;
        if (field == name && in >> value) {
            return value;
        }
        in.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return 0;
}

}  // namespace

ProcessUsage usageOf(pid_t process) {
    const fs::path directory = "/proc/" + std::to_string(process);
    ProcessUsage usage;
    countDescriptors(directory / "fd", usage);
    usage.threads = countThreads(directory / "task");
    usage.memoryKiB = memoryField(directory / "smaps_rollup", "Private_Dirty:");
    return usage;
}

std::string describe(const ProcessUsage& usage) {
    return std::to_string(usage.descriptors) + " descriptors, " + std::to_string(usage.waits) + " waits, " +
           std::to_string(usage.threads) + " threads";
}

}  // namespace simulator
