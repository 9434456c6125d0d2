#pragma once

#include <chrono>
#include <thread>

namespace wifi_projection_protocol {

/// Whether a stream that was started has its thread, and the thread its socket.
template <class Stream>
bool isUnderWay(const Stream& stream) {
    constexpr std::chrono::milliseconds kLook{1};  // a beginning takes much less
    if (!stream.hasThread()) {
        return false;
    }
    while (!stream.hasBegun()) {
        std::this_thread::sleep_for(kLook);
    }
    return !stream.lacksSocket();
}

/// Starts a stream, again every 100 ms while there is no thread or no socket for it to be had (which the stream logs):
/// without one the link would be dead, and nobody would ever start it again.
/// @return what Start says.
template <class Stream>
bool startWithThread(Stream& stream, const typename Stream::Config& config, unsigned mode) {
    constexpr std::chrono::milliseconds kRetryPeriod{100};
    bool started = stream.Start(config, mode);
    while (started && !isUnderWay(stream)) {
        std::this_thread::sleep_for(kRetryPeriod);
        started = stream.Start(config, mode);
    }
    return started;
}

}  // namespace wifi_projection_protocol
