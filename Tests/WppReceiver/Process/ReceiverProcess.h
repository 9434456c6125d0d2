#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

#include "Tests/Support/Deadline.h"

namespace wpp_test {

/// The built receiver as a process of its own, started in the given directory. Killed and reaped at the end
/// if it still runs. The program is named by the environment variable WPP_RECEIVER.
class ReceiverProcess {
public:
    enum class Standard { kLogFile, kClosed };  ///< where its standard output and error go

    /// With closed descriptors its standard input is closed too, and there is no output to read.
    /// A limit above 0 is that of its descriptors. It cannot raise that, but the test may.
    explicit ReceiverProcess(std::filesystem::path workingDirectory, Standard standard = Standard::kLogFile,
                             std::size_t mostDescriptors = 0);
    ~ReceiverProcess();
    ReceiverProcess(const ReceiverProcess&) = delete;
    ReceiverProcess& operator=(const ReceiverProcess&) = delete;

    pid_t pid() const { return process; }
    bool isAlive();

    /// The exit status; 128 and the signal's number when a signal ended it; nothing when it still runs.
    std::optional<int> waitForExit(std::chrono::milliseconds limit = kGenerousLimit);

    /// Everything that it has printed so far.
    std::string output() const;
    std::size_t countOutput(const std::string& part) const;
    bool waitForOutput(const std::string& part) const;

    std::size_t descriptors() const;
    std::size_t threads() const;

    /// The number of threads whose name begins with `namePart`.
    std::size_t threadsNamed(const std::string& namePart) const;

    /// The number of descriptors once it has stayed the same for several passes of the streams, which see a
    /// peer's end only at their next one.
    std::size_t settledDescriptors() const;

    /// The file that a library of this name was mapped from, empty when there is none.
    std::string mappedLibrary(const std::string& name) const;

private:
    std::size_t countEntries(const std::string& procDirectory) const;

    std::filesystem::path directory;
    std::filesystem::path outputFile;
    pid_t process = -1;
    std::optional<int> exitStatus;
};

}  // namespace wpp_test
