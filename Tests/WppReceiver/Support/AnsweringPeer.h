#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Tests/Support/FramedPeer.h"

namespace wpp_test {

/// A peer process's listening end: accepts one connection after the other on a socket name, keeps every frame
/// and answers it. Its thread ends with it.
class AnsweringPeer {
public:
    using Bytes = std::string;
    /// What to answer to a frame; nothing when it is to stay unanswered.
    using Answer = std::function<std::optional<Bytes>(const Bytes& frame)>;

    explicit AnsweringPeer(const std::string& socketName, Answer answer = alwaysAnswer(1));
    ~AnsweringPeer();
    AnsweringPeer(const AnsweringPeer&) = delete;
    AnsweringPeer& operator=(const AnsweringPeer&) = delete;

    /// Answers every frame with this one byte.
    static Answer alwaysAnswer(std::uint8_t value);

    /// Waits up to 10 s for a first connection. @return whether one came.
    bool waitForConnection();

    std::vector<Bytes> frames();

    /// Forgets the frames so far.
    void forgetFrames();

    /// The ids in front of the frames, in order.
    std::vector<std::int32_t> ids();

    /// Waits up to 10 s for so many frames. @return whether they came.
    bool waitForFrames(std::size_t count);

    /// Waits up to 10 s for a frame with this id. @return whether one came.
    bool waitForId(std::int32_t id);

private:
    void serve();
    void serveConnection(FramedPeer& connection);

    FramedListener listener;
    const Answer answerOf;
    std::atomic<bool> stopping{false};
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Bytes> received;
    bool wasConnected = false;
    std::thread thread;
};

/// The message id in front of a frame's payload, -1 when it is too short.
std::int32_t messageIdOf(const AnsweringPeer::Bytes& frame);

}  // namespace wpp_test
