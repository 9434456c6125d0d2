#include "Tests/WppReceiver/Support/AnsweringPeer.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <utility>

#include "Tests/Support/Deadline.h"

namespace wpp_test {

namespace {
// How soon the peer's thread sees that it is to end.
constexpr std::chrono::milliseconds kPollPeriod{20};
}  // namespace

AnsweringPeer::AnsweringPeer(const std::string& socketName, Answer answer)
    : listener(socketName), answerOf(std::move(answer)), thread([this] { serve(); }) {}

AnsweringPeer::~AnsweringPeer() {
    stopping = true;
    thread.join();
}

AnsweringPeer::Answer AnsweringPeer::alwaysAnswer(std::uint8_t value) {
    return [value](const Bytes&) { return Bytes(1, static_cast<char>(value)); };
}

bool AnsweringPeer::waitForConnection() {
    std::unique_lock guard(mutex);
    return changed.wait_for(guard, kGenerousLimit, [this] { return wasConnected; });
}

std::vector<AnsweringPeer::Bytes> AnsweringPeer::frames() {
    std::lock_guard guard(mutex);
    return received;
}

void AnsweringPeer::forgetFrames() {
    std::lock_guard guard(mutex);
    received.clear();
}

std::vector<std::int32_t> AnsweringPeer::ids() {
    std::vector<std::int32_t> result;
    for (const Bytes& frame : frames()) {
        result.push_back(messageIdOf(frame));
    }
    return result;
}

bool AnsweringPeer::waitForFrames(std::size_t count) {
    std::unique_lock guard(mutex);
    return changed.wait_for(guard, kGenerousLimit, [&] { return received.size() >= count; });
}

bool AnsweringPeer::waitForId(std::int32_t id) {
    std::unique_lock guard(mutex);
    return changed.wait_for(guard, kGenerousLimit, [&] {
        return std::any_of(received.begin(), received.end(),
                           [id](const Bytes& frame) { return messageIdOf(frame) == id; });
    });
}

void AnsweringPeer::serve() {
    while (!stopping) {
        FramedPeer connection = listener.accept(kPollPeriod);
        if (connection.isConnected()) {
            serveConnection(connection);
        }
    }
}

void AnsweringPeer::serveConnection(FramedPeer& connection) {
    {
        std::lock_guard guard(mutex);
        wasConnected = true;
        changed.notify_all();
    }
    while (!stopping) {
        pollfd watched{connection.socket(), POLLIN, 0};
        if (poll(&watched, 1, static_cast<int>(kPollPeriod.count())) <= 0) {
            continue;
        }
        std::optional<Bytes> frame = connection.receiveFrame();
        if (!frame) {
            return;
        }
        {
            std::lock_guard guard(mutex);
            received.push_back(*frame);
            changed.notify_all();
        }
        if (const std::optional<Bytes> answer = answerOf(*frame)) {
            connection.sendFrame(*answer);
        }
    }
}

std::int32_t messageIdOf(const AnsweringPeer::Bytes& frame) {
    std::int32_t id = -1;
    if (frame.size() >= sizeof(id)) {
        std::memcpy(&id, frame.data(), sizeof(id));
    }
    return id;
}

}  // namespace wpp_test
