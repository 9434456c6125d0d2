#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <thread>

namespace wpp_test {

/// Whether this process may give a thread of its own the nice value.
inline bool mayUseNice(int nice) {
    bool allowed = false;
    std::thread([&allowed, nice] {
        allowed = setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), nice) == 0;
    }).join();
    return allowed;
}

/// The nice value of a kernel thread.
inline int niceOf(pid_t tid) {
    return getpriority(PRIO_PROCESS, static_cast<id_t>(tid));
}

}  // namespace wpp_test
