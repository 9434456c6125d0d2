#pragma once

#include <cstdint>

namespace wifi_projection_protocol {

/// The way by which a transport reaches the phone.
enum class TransportType : std::uint32_t { kRfcomm = 1, kTcp = 2 };

/// A connected byte pipe to the phone. One thread reads; any thread may write or close.
class TransportInputOutput {
public:
    virtual ~TransportInputOutput() = default;

    /// Waits for bytes and copies at most `length` of them to `destination`.
    /// @return the count copied (0: nothing was there after all, read again), or -1 once closed.
    virtual int read(void* destination, unsigned length) = 0;

    /// Sends `length` bytes of `source`. @return above 0 when they went out; 0 or below when they did not.
    virtual int write(const void* source, unsigned length) = 0;

    /// Ends the link and wakes a waiting reader. Further calls do nothing.
    virtual void close() = 0;
};

}  // namespace wifi_projection_protocol
