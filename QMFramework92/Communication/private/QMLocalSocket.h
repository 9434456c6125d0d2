#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "Communication/QMLocalSocketStream.h"
#include "Foundation/QMDescriptor.h"

// The calls under both local socket streams: addresses, frames and waits. Nothing here logs or takes a lock.

/// A frame is a 32-bit length in host byte order and that many payload bytes.
constexpr std::uint32_t kQMFramePrefixSize = 4;

/// Payloads above this size are reported when they are sent.
constexpr std::uint32_t kQMLargeSendSize = 0xA00000;

/// Size of a whole frame.
constexpr std::uint64_t qm_FrameSize(std::uint32_t length) {
    return std::uint64_t{length} + kQMFramePrefixSize;
}

/// The longest socket name, without its terminator.
constexpr std::size_t kQMMaxSocketName = sizeof(QMLocalSocketName::text) - 1;

/// Length of every local socket address that is passed to the kernel.
constexpr socklen_t kQMSocketAddressSize = 110;
static_assert(sizeof(sockaddr_un) == kQMSocketAddressSize, "a local socket address is 110 bytes");

/// Non-null and short enough for an address.
bool qm_IsSocketName(const char* name);

/// A copy of a socket name.
QMLocalSocketName qm_CopySocketName(const char* name);

/// The file system address of a name, of which at most 107 characters are taken.
sockaddr_un qm_MakeSocketAddress(const char* name);

/// A local stream socket, close-on-exec. Empty on failure, with errno.
QMDescriptor qm_OpenLocalSocket();

/// Connects within the time limit, also when the listener's queue is full. @return whether it did.
bool qm_ConnectLocalSocket(int socket, const char* name, std::chrono::milliseconds timeLimit);

/// Lays out a frame at `frame`, which has room for length + 4 bytes.
void qm_WriteFrame(std::uint8_t* frame, const void* data, std::uint32_t length);

/// What came of receiving a number of bytes. Fewer of them: the peer has closed, or the call failed with errno.
struct QMReceived {
    std::size_t count;
    bool isClosed;
};

/// One recv of `length` bytes with MSG_WAITALL, and another one for the rest when a signal has interrupted it: where a
/// frame breaks off, nobody could tell where the next one begins.
QMReceived qm_Receive(int socket, void* buffer, std::size_t length);

/// The same. @return true when all of them came.
bool qm_ReceiveExactly(int socket, void* buffer, std::size_t length);

/// Receives `length` bytes in the same way and throws them away, without memory for them.
QMReceived qm_Discard(int socket, std::uint32_t length);

enum QMWaitResult : int { kQMWaitInvalid = -1, kQMWaitTimedOut = -2, kQMWaitFailed = -3 };

/// Waits until at least one descriptor is readable (or broken) and writes those that are to `ready`, which
/// has room for `readyCount`. Numbers that are no descriptors count as never readable.
/// @return how many are ready; a QMWaitResult when the time is over, the wait fails (with errno) or an array is null.
int qm_WaitReadable(const int* descriptors, std::size_t count, int* ready, std::size_t readyCount,
                    std::chrono::milliseconds timeout);

/// poll for input on one descriptor; a negative timeout waits without limit. @return as poll: 1 ready, 0
/// timed out, -1 failed.
int qm_PollReadable(int descriptor, int timeoutMs);

/// Lets the time pass.
void qm_Pause(std::chrono::milliseconds duration);
