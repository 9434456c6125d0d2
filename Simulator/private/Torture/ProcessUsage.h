#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace simulator {

/// What a process of this machine holds at one moment.
struct ProcessUsage {
    std::size_t descriptors = 0;  ///< without the epoll instances
    /// The epoll instances. Each wait of the receiver's streams and events makes one and closes it again, so
    /// that there are as many as waits but for a moment between two of them.
    std::size_t waits = 0;
    std::size_t threads = 0;
    long memoryKiB = 0;  ///< memory of its own that it has written to

    /// Whether descriptors and threads are as many. Memory comes in pages of a heap and is never quite equal.
    bool isAsMuchAs(const ProcessUsage& other) const {
        return descriptors == other.descriptors && threads == other.threads;
    }
};

/// All 0 for a process that does not exist.
ProcessUsage usageOf(pid_t process);

/// "31 descriptors, 12 threads".
std::string describe(const ProcessUsage& usage);

}  // namespace simulator
