#pragma once

#include <filesystem>

namespace bench {

/// A fresh directory under $TMPDIR (or /tmp) that is the working directory until the end, then removed.
class ScratchDirectory {
public:
    /// @throws std::system_error when it cannot be made.
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

private:
    std::filesystem::path directory;
    std::filesystem::path former;
};

}  // namespace bench
