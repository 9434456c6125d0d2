#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "Tests/Support/Deadline.h"

namespace wpp_test {

/// The bytes of a frame: a 32-bit length in host order, then the payload.
std::string frameOf(const std::string& payload);

/// A length word alone.
std::string framePrefix(std::uint32_t length);

/// The other end of a local socket stream, written on the plain socket calls. Owns its connection.
class FramedPeer {
public:
    FramedPeer() = default;
    /// Takes over a connected socket.
    explicit FramedPeer(int connectedSocket) : descriptor(connectedSocket) {}
    FramedPeer(FramedPeer&& other) noexcept;
    FramedPeer& operator=(FramedPeer&& other) noexcept;
    ~FramedPeer() { close(); }

    /// Connects to a listening socket file, waiting for it to come up. Not connected when the limit passes.
    static FramedPeer connectTo(const std::filesystem::path& path,
                                std::chrono::milliseconds limit = kGenerousLimit);

    bool isConnected() const { return descriptor >= 0; }
    int socket() const { return descriptor; }

    /// All bytes as they are. @return false when the other end is gone.
    bool sendBytes(const std::string& bytes);
    /// One send call for each byte.
    bool sendByteByByte(const std::string& bytes);
    bool sendFrame(const std::string& payload) { return sendBytes(frameOf(payload)); }

    /// `count` bytes; empty when the other end closes or the limit passes before.
    std::optional<std::string> receiveBytes(std::size_t count,
                                            std::chrono::milliseconds limit = kGenerousLimit);
    /// The payload of the next frame.
    std::optional<std::string> receiveFrame(std::chrono::milliseconds limit = kGenerousLimit);

    /// Waits until the other end has read everything that was sent.
    bool waitUntilRead(std::chrono::milliseconds limit = kGenerousLimit) const;

    /// Waits until the other end has closed; what it still sends is dropped.
    bool waitForClose(std::chrono::milliseconds limit = kGenerousLimit);

    void close();

private:
    int descriptor = -1;
};

/// A listening local socket.
class FramedListener {
public:
    static constexpr int kDefaultBacklog = 8;

    explicit FramedListener(const std::filesystem::path& path, int backlog = kDefaultBacklog);
    ~FramedListener();
    FramedListener(const FramedListener&) = delete;
    FramedListener& operator=(const FramedListener&) = delete;

    /// The next peer; not connected when the limit passes.
    FramedPeer accept(std::chrono::milliseconds limit = kGenerousLimit);

private:
    int descriptor;
};

}  // namespace wpp_test
