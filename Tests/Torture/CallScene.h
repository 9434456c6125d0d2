#pragma once

#include <chrono>
#include <thread>

#include "Tests/Support/Deadline.h"
#include "Tests/Torture/AllocationHooks.h"
#include "Tests/Torture/Trial.h"
#include "Tests/WppReceiver/Support/AnsweringPeer.h"

namespace wpp_torture {

/// Does something that is not part of what is tortured, threads that it begins included.
template <class Action>
auto harmless(Action action) {
    const Unharmed unharmed;
    return action();
}

/// Ends the torture after a while, for scenarios that wait until a call succeeds. From its making on, calls fail.
class TorturedWhile {
public:
    TorturedWhile(Trial& tortured, std::chrono::milliseconds limit)
        : trial(tortured),
          end(limit),
          thread(harmless([this] { return std::thread([this] { endInTime(); }); })) {
        trial.begin();
    }
    ~TorturedWhile() {
        over = true;
        thread.join();
        trial.end();
    }
    TorturedWhile(const TorturedWhile&) = delete;
    TorturedWhile& operator=(const TorturedWhile&) = delete;

private:
    void endInTime() {
        while (!over && !end.passed()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));  // an event's calls may be failing
        }
        trial.end();
    }

    Trial& trial;
    const wpp_test::Deadline end;
    std::atomic<bool> over{false};
    std::thread thread;
};

}  // namespace wpp_torture
