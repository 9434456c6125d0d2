#pragma once

#include <chrono>
#include <cstddef>

namespace wifi_projection_protocol {

// Everything that a phone may cost is bounded here; the size of a message is in phone/PhoneMessageCodec.h.

/// How long the TLS handshake may take in all, unless the factory is told otherwise.
constexpr std::chrono::milliseconds kHandshakeTimeLimit{5000};

/// How long one write may wait for a phone that does not read.
constexpr std::chrono::milliseconds kWriteTimeLimit{5000};

/// A TCP peer that answers nothing for this long is probed, and given up after so many probes without an
/// answer.
constexpr int kKeepAliveIdleSeconds = 10;
constexpr int kKeepAliveIntervalSeconds = 5;
constexpr int kKeepAliveProbes = 4;

/// Sizes of what a phone says, in bytes. A client id has at least one.
constexpr std::size_t kMaxClientIdSize = 256;
constexpr std::size_t kMaxTextSize = 4096;

/// Most bytes taken from a transport by one read.
constexpr std::size_t kReadSize = 4096;

/// The limits that a test sets lower.
struct Limits {
    /// From the handing-over of a transport to its first complete message.
    std::chrono::milliseconds helloTime{5000};

    /// From the first bytes of a message to its last.
    std::chrono::milliseconds messageTime{5000};

    /// From Start to its result; the receiver itself gives up a little earlier, after 60 s.
    std::chrono::milliseconds startResultTime{65000};

    /// Transports at a time; one more is closed at once. Every one of 254 devices on both ways, and strangers
    /// beside them. A TLS transport takes one descriptor, the head unit's RFCOMM transport three.
    std::size_t transports = 680;

    /// TCP transports without a Hello, at a time. For one more, or when there is no room for another
    /// transport, the one that has waited longest is dropped. A phone needs some milliseconds for its Hello,
    /// so it is not the honest one that goes; all 254 may come at once.
    std::size_t strangers = 256;

    /// How long a new transport waits until those that are ending have made room.
    std::chrono::milliseconds roomTime{1000};
};

}  // namespace wifi_projection_protocol
