#pragma once

#include <cstddef>
#include <cstdint>

namespace bench {

/// The result of a system call. @throws std::system_error naming the call when it is negative.
int check(int result, const char* call);

/// A listening UNIX-domain stream socket in the working directory.
int listenLocal(const char* name);

/// Connects to it, waiting up to 10 s for it to come up. @throws std::runtime_error when it does not.
int connectLocal(const char* name);

int acceptOne(int listener);

/// All of it, blocking. @throws std::runtime_error when the other end is gone.
void sendAll(int socket, const void* data, std::size_t length);
void receiveAll(int socket, void* data, std::size_t length);

/// The length word in front of each message.
constexpr std::size_t kPrefixSize = sizeof(std::uint32_t);

/// A one-byte acknowledgement with its length word in front.
struct AckFrame {
    std::uint8_t bytes[kPrefixSize + 1];
};
AckFrame makeAck();

}  // namespace bench
