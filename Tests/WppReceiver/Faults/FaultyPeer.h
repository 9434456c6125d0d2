#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "Tests/Support/FramedPeer.h"
#include "Tests/WppReceiver/Faults/FaultTable.h"

namespace wpp_test {

/// A peer that takes a conversation to one byte and fails there: by itself, or as a process of its own that is
/// killed.
class FaultyPeer {
public:
    /// What it does with its connection, in this order.
    struct Script {
        std::string before;         ///< sent first
        std::size_t readSize = 0;   ///< then read
        std::string after;          ///< then sent
        bool leavesUnread = false;  ///< something more arrives, which it does not read
    };

    FaultyPeer(FramedPeer connected, Script whatToDo);
    ~FaultyPeer();
    FaultyPeer(const FaultyPeer&) = delete;
    FaultyPeer& operator=(const FaultyPeer&) = delete;

    /// Does what the script says, in a process of its own when it is going to be killed, and waits until the
    /// other end has read all of it. @return whether it came to that.
    bool reach(Fault fault);

    /// Fails. A stalled peer stays; an orderly close still leaves its receiving side open.
    void fail(Fault fault);

    /// Waits until the other end has closed.
    bool isDropped() const;

private:
    bool startProcess();

    FramedPeer peer;
    const Script script;
    pid_t process = -1;
};

/// Does the steps of a script on a connection with nothing but system calls, as a forked process may.
bool playScript(int socket, const FaultyPeer::Script& script);

}  // namespace wpp_test
