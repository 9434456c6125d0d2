#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "Benchmarks/RoundTrip/Support/Case.h"

namespace bench {

/// What takes a phone's bytes from the Bluetooth process and hands them to the library's reads: it runs until its
/// process is killed and counts the bytes that the reads have returned.
struct SppReceiver {
    std::string name;
    std::function<void(std::atomic<std::uint64_t>& bytesRead)> serve;
};

constexpr const char* kSppSocketName = "WPP_SOCKET_FROM_BT";
constexpr unsigned kSppPhone = 7;

/// The most that the library takes with one read.
constexpr std::size_t kSppReadSize = 4096;

/// What a message with received bytes holds beside them: id, device, length of the UUID and the UUID, length of
/// the bytes.
constexpr std::size_t kSppOverhead = 4 + 1 + 4 + 32 + 4;

/// One thread that takes the messages, acknowledges them and counts.
SppReceiver minimalSppReceiver();

/// The system calls of the product's two threads in their order, and nothing between them.
SppReceiver prescribedSppReceiver();

/// The same calls and the copies of the bytes that the documented types have: the frame's buffer, the message, its field,
/// the transport's buffer, the reader's.
SppReceiver copyingSppReceiver();

/// The product's Bluetooth proxy and the RFCOMM transports of so many phones, 254 at most. One phone's is read as the
/// library reads it.
SppReceiver ourSppReceiver(unsigned phones = 1);

/// Messages of 1 KiB and 16 KiB, each acknowledged, until a read has returned the last of their bytes.
Case sppCase(const SppReceiver& receiver);

/// What a short message of one phone costs the processor with the number of phones, from its sending to its read.
Case phonesCase();

}  // namespace bench
