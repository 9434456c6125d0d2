#pragma once

#include <string>

namespace simulator {

/// A fresh directory that only its user may enter, under $TMPDIR (or /tmp); removed with all that is in it at
/// the end.
class PrivateDirectory {
public:
    /// @throws std::system_error when it cannot be made.
    PrivateDirectory();
    ~PrivateDirectory();

    PrivateDirectory(const PrivateDirectory&) = delete;
    PrivateDirectory& operator=(const PrivateDirectory&) = delete;

    const std::string& path() const { return directory; }

    /// Writes a file that only the user may read. @throws std::system_error when it cannot be written.
    void write(const std::string& name, const std::string& content) const;

private:
    std::string directory;
};

}  // namespace simulator
