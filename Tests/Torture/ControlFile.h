#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include "Pattern/QMUncopyable.h"

namespace wpp_torture {

/// A file of zeros that is mapped to be shared with another process. The file goes with the object.
class SharedFile : private QMUncopyable {
public:
    /// @throws std::system_error when the file cannot be made or mapped.
    SharedFile(std::string filePath, std::size_t fileSize);
    ~SharedFile();

    const std::string& path() const { return file; }
    void* memory() const { return mapped; }

private:
    const std::string file;
    const std::size_t size;
    void* mapped = nullptr;
};

/// A control in a file, to be shared with a process that is about to start. All zero is what a control begins with.
template <class Control>
class ControlFile {
public:
    /// @throws std::system_error when the file cannot be made or mapped.
    explicit ControlFile(std::string filePath) : file(std::move(filePath), sizeof(Control)) {}

    const std::string& path() const { return file.path(); }
    Control& operator*() const { return *static_cast<Control*>(file.memory()); }
    Control* operator->() const { return static_cast<Control*>(file.memory()); }

private:
    SharedFile file;
};

}  // namespace wpp_torture
