#pragma once

#include <semaphore.h>

#include <chrono>
#include <string>
#include <thread>

#include "Tests/Torture/AllocationHooks.h"

namespace wpp_torture {

constexpr unsigned kPatienceMs = 10000;

/// Waits until `condition` holds, without memory. @return whether it does, within a limit that a lost message costs.
template <class Condition>
bool comes(Condition condition) {
    constexpr std::chrono::seconds kLimit{2};
    const auto end = std::chrono::steady_clock::now() + kLimit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        // An event would take the memory or the calls that are failing.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Takes away the file behind a named lock.
inline void unlinkSemaphore(const char* name) {
    const Unharmed unharmed;
    sem_unlink(("/" + std::string(name)).c_str());
}

}  // namespace wpp_torture
