#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace bench {

enum class PayloadBuffer { kStatic, kFresh };

/// The serving end of a stream as bare system calls: on each pass a fresh wait set with a 100 ms limit, then for a
/// peer that has something to read a poll, the length word, the payload. What `handle` does follows, and it may
/// answer on the peer's socket. As in the product this is a thread of its own: in a process of several threads each
/// system call costs a little more. Runs until its process is killed.
void servePrescribed(const char* name,
                     const std::function<void(int peer, const std::uint8_t*, std::uint32_t)>& handle,
                     PayloadBuffer kind = PayloadBuffer::kStatic);

/// The asking end's exchange: one send, a poll without limit, the length word of the answer, its byte.
void exchangePrescribed(int socket, const void* frame, std::size_t length);

}  // namespace bench
