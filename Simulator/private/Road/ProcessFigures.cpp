#include "Simulator/private/Road/ProcessFigures.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <system_error>

namespace simulator {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kSlackKb = 2048;

/// Calls it with each entry of the directory, of which some may go meanwhile.
template <typename Visitor>
void visitEntries(const std::string& directory, Visitor visit) {
    std::error_code gone;
    for (fs::directory_iterator entry(directory, gone); !gone && entry != fs::directory_iterator();
         entry.increment(gone)) {
        visit(*entry);
    }
}

void countDescriptors(const std::string& directory, ProcessFigures& figures) {
    visitEntries(directory, [&figures](const fs::directory_entry& entry) {
        std::error_code closed;
        const fs::path target = fs::read_symlink(entry.path(), closed);
        if (!closed) {
            ++(target == "anon_inode:[eventpoll]" ? figures.waits : figures.descriptors);
        }
    });
}

std::size_t residentKb(const std::string& file) {
    std::size_t pages = 0;
    std::ifstream(file) >> pages >> pages;  // the second number is what is resident
    return pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) / 1024;
}

/// The field of the file that adds up all mappings, in KiB.
std::size_t memoryField(const std::string& file, const std::string& name) {
    std::ifstream in(file);
    std::string field;
    while (in >> field) {
        std::size_t value = 0;
        if (field == name && in >> value) {
            return value;
        }
        in.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return 0;
}

}  // namespace

ProcessFigures ProcessFigures::of(pid_t process) {
    const std::string directory = "/proc/" + std::to_string(process);
    ProcessFigures figures;
    figures.memoryKb = residentKb(directory + "/statm");
    countDescriptors(directory + "/fd", figures);
    visitEntries(directory + "/task", [&figures](const fs::directory_entry&) { ++figures.threads; });
    figures.writtenKb = memoryField(directory + "/smaps_rollup", "Private_Dirty:");
    return figures;
}

std::string ProcessFigures::describe() const {
    char megabytes[32];
    std::snprintf(megabytes, sizeof(megabytes), "%.1f MB, ", static_cast<double>(memoryKb) / 1024);
    return megabytes + std::to_string(descriptors) + " descriptors, " + std::to_string(waits) + " waits, " +
           std::to_string(threads) + " threads";
}

bool ProcessFigures::exceed(const ProcessFigures& earlier) const {
    return memoryKb > earlier.memoryKb + earlier.memoryKb / 10 + kSlackKb ||
           descriptors > earlier.descriptors || threads > earlier.threads;
}

bool ProcessFigures::areAsManyAs(const ProcessFigures& other) const {
    return descriptors == other.descriptors && threads == other.threads;
}

}  // namespace simulator
