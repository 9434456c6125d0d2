#include "Tests/WppReceiver/Faults/FaultyPeer.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <utility>

#include "Tests/Support/Deadline.h"

namespace wpp_test {

namespace {

bool sendAll(int socket, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = ::send(socket, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (count < 0) {
            return false;
        }
        done += static_cast<std::size_t>(count);
    }
    return true;
}

bool readAll(int socket, std::size_t size) {
    std::array<char, 512> dropped;
    while (size > 0) {
        const ssize_t count = ::recv(socket, dropped.data(), std::min(size, dropped.size()), 0);
        if (count <= 0) {
            return false;
        }
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

bool waitFor(int descriptor, short events) {
    pollfd watched{descriptor, events, 0};
    return ::poll(&watched, 1, static_cast<int>(kGenerousLimit.count())) > 0;
}

}  // namespace

bool playScript(int socket, const FaultyPeer::Script& script) {
    return sendAll(socket, script.before) && readAll(socket, script.readSize) &&
           sendAll(socket, script.after);
}

FaultyPeer::FaultyPeer(FramedPeer connected, Script whatToDo)
    : peer(std::move(connected)), script(std::move(whatToDo)) {}

FaultyPeer::~FaultyPeer() {
    fail(Fault::kKilled);
}

bool FaultyPeer::reach(Fault fault) {
    const bool isPlayed = fault == Fault::kKilled ? startProcess() : playScript(peer.socket(), script);
    return isPlayed && peer.waitUntilRead() && (!script.leavesUnread || waitFor(peer.socket(), POLLIN));
}

/// The child tells over a pipe that it has played its script, and then waits for its end.
bool FaultyPeer::startProcess() {
    std::array<int, 2> done{};
    if (::pipe(done.data()) != 0) {
        return false;
    }
    process = ::fork();
    if (process == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (playScript(peer.socket(), script) && ::write(done[1], "x", 1) == 1) {
            for (;;) {
                ::pause();
            }
        }
        ::_exit(1);
    }
    ::close(done[1]);
    char byte = 0;
    const bool isPlayed = waitFor(done[0], POLLIN) && ::read(done[0], &byte, 1) == 1;
    ::close(done[0]);
    return isPlayed;
}

void FaultyPeer::fail(Fault fault) {
    switch (fault) {
        case Fault::kStall:
            return;
        case Fault::kClose:
            ::shutdown(peer.socket(), SHUT_WR);
            return;
        case Fault::kReset:
        case Fault::kKilled:
            peer.close();
            if (process > 0) {
                ::kill(process, SIGKILL);
                ::waitpid(std::exchange(process, -1), nullptr, 0);
            }
            return;
    }
}

bool FaultyPeer::isDropped() const {
    return waitUntil([this] {
        pollfd watched{peer.socket(), 0, 0};
        return ::poll(&watched, 1, 0) > 0 && (watched.revents & POLLHUP) != 0;
    });
}

}  // namespace wpp_test
