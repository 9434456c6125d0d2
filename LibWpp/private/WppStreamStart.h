#pragma once

#include <chrono>
#include <thread>

namespace wifi_projection_protocol {

/// Starts a stream, again every 100 ms while there is no thread for it to be had (which the thread logs): without
/// one the link would be dead, and nobody would ever start it again.
/// @return what Start says.
template <class Stream>
bool startWithThread(Stream& stream, const typename Stream::Config& config, unsigned mode) {
    constexpr std::chrono::milliseconds kRetryPeriod{100};
    bool started = stream.Start(config, mode);
    while (started && !stream.hasThread()) {
        std::this_thread::sleep_for(kRetryPeriod);
        started = stream.Start(config, mode);
    }
    return started;
}

}  // namespace wifi_projection_protocol
