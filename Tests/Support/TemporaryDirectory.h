#pragma once

#include <filesystem>

namespace wpp_test {

/// A directory of its own for one test, removed with all it holds at the end.
class TemporaryDirectory {
public:
    TemporaryDirectory();

    /// Goes back to the former working directory if it was entered.
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return directory; }

    /// Makes it the working directory of the process until leave() or the end.
    void enter();
    void leave();

private:
    std::filesystem::path directory;
    std::filesystem::path formerWorkingDirectory;
};

}  // namespace wpp_test
