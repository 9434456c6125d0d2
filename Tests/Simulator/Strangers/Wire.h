#pragma once

#include <string>
#include <string_view>

#include "Simulator/private/Io/Clock.h"
#include "Simulator/private/Io/UniqueFd.h"

namespace simulator {

/// A stranger's end of a connection: plain bytes on a blocking socket, with a limit on every wait.
///
/// Open from construction; ended for good once the other end has closed or reset it, or after reset().
class Wire {
public:
    /// How much of what the receiver says fits on the way when nobody reads it: as ever, or a few kilobytes.
    enum class Room { kUsual, kLittle };

    /// Connects to the receiver's port from an own loopback address.
    /// @throws std::system_error when that is impossible.
    static Wire overTcp(const std::string& ownAddress, Room room = Room::kUsual);

    /// Opens an RFCOMM channel of this device; `directory` holds the Bluetooth process's socket.
    static Wire overRfcomm(const std::string& directory, std::uint8_t device);

    explicit Wire(UniqueFd connected) : fd(std::move(connected)) {}

    /// Sends it all. @return false when the other end is gone or takes nothing for a long time.
    bool send(std::string_view bytes);

    /// Sends a byte, waits for `pause`, sends the next, until all is sent or the connection has ended.
    void sendSlowly(std::string_view bytes, Milliseconds pause);

    /// What arrives next; empty when nothing does within `limit`, or at the end.
    std::string receive(Milliseconds limit);

    /// Takes what arrives, and keeps it, until the connection ends or the limit passes.
    void awaitEnd(Milliseconds limit);

    /// Waits for the end without taking anything.
    void awaitEndUnread(Milliseconds limit);

    /// Has the other end closed or reset the connection?
    bool hasEnded() const { return ended; }

    /// All bytes that have arrived so far.
    const std::string& received() const { return all; }

    /// Sends nothing any more; still reads.
    void endSending();

    /// Throws the connection away, so that the other end gets an error.
    void reset();

private:
    UniqueFd fd;
    std::string all;
    bool ended = false;
};

}  // namespace simulator
