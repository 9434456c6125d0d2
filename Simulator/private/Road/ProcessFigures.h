#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace simulator {

/// What a process costs the system at a moment.
struct ProcessFigures {
    std::size_t memoryKb = 0;     ///< resident memory
    std::size_t descriptors = 0;  ///< without the epoll instances
    std::size_t threads = 0;
    /// The epoll instances. Each wait of the receiver's streams and events makes one and closes it again, so
    /// that there are as many as waits but for a moment between two of them.
    std::size_t waits = 0;
    std::size_t writtenKb = 0;  ///< memory of its own that it has written to

    /// Of a running process; all 0 when there is none of this id.
    static ProcessFigures of(pid_t process);

    /// "12.3 MB, 44 descriptors, 3 waits, 6 threads"
    std::string describe() const;

    /// Whether these are more than those of an earlier moment. Memory may grow by a tenth and 2 MB, which is
    /// what the allocator keeps for threads that come and go.
    bool exceed(const ProcessFigures& earlier) const;

    /// Whether descriptors and threads are as many. Memory comes in pages of a heap and is never quite equal.
    bool areAsManyAs(const ProcessFigures& other) const;
};

}  // namespace simulator
