#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace simulator {

/// What a process costs the system at a moment.
struct ProcessFigures {
    std::size_t memoryKb = 0;  ///< resident memory
    std::size_t descriptors = 0;
    std::size_t threads = 0;

    /// Of a running process; all 0 when there is none of this id.
    static ProcessFigures of(pid_t process);

    /// "12.3 MB, 44 descriptors, 6 threads"
    std::string describe() const;

    /// Whether these are more than those of an earlier moment. Memory may grow by a tenth and 2 MB, which is
    /// what the allocator keeps for threads that come and go.
    bool exceed(const ProcessFigures& earlier) const;
};

}  // namespace simulator
