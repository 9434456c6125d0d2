#pragma once

#include <utility>

namespace simulator {

/// The one owner of a descriptor; closes it when it goes. Move-only.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor) : fd(descriptor) {}
    UniqueFd(UniqueFd&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(std::exchange(other.fd, -1));
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    int get() const { return fd; }
    explicit operator bool() const { return fd >= 0; }

    /// Gives the descriptor away without closing it.
    int release() { return std::exchange(fd, -1); }

    /// Closes what is held and holds `descriptor` from now on.
    void reset(int descriptor = -1);

private:
    int fd = -1;
};

}  // namespace simulator
