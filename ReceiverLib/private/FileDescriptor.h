#pragma once

#include <unistd.h>

#include <utility>

namespace wifi_projection_protocol {

/// Owns a file descriptor and closes it; -1 when it owns none.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int owned) : fd(owned) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }
    ~FileDescriptor() {
        if (fd >= 0) {
            ::close(fd);
        }
    }

    int get() const { return fd; }
    explicit operator bool() const { return fd >= 0; }

private:
    int fd = -1;
};

}  // namespace wifi_projection_protocol
