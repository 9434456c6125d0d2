#pragma once

#include <string>

#include "Tests/Torture/AllocationControl.h"

namespace wpp_torture {

/// A control in a file, to be shared with a process that is about to start. The file goes with the object.
class ControlFile {
public:
    /// @throws std::system_error when the file cannot be made or mapped.
    explicit ControlFile(std::string filePath);
    ~ControlFile();
    ControlFile(const ControlFile&) = delete;
    ControlFile& operator=(const ControlFile&) = delete;

    const std::string& path() const { return file; }
    AllocationControl& operator*() const { return *control; }
    AllocationControl* operator->() const { return control; }

private:
    const std::string file;
    AllocationControl* control = nullptr;
};

}  // namespace wpp_torture
