#pragma once

#include <memory>
#include <string>

#include "wifi_projection_protocol/WifiProjectionProtocolLoggingCallback.h"

namespace wifi_projection_protocol {

/// The library's log lines on their way to the logging callback, which may be missing. Plain text without a
/// line end; transport names and numbers, never what a phone said nor a key. Any thread; no lock is held
/// meanwhile.
class LibraryLog {
public:
    /// The levels of WifiProjectionProtocolLoggingCallback::log.
    enum Level : int { kInfo = 0, kWarning = 1, kError = 2 };

    explicit LibraryLog(std::unique_ptr<WifiProjectionProtocolLoggingCallback> target)
        : callback(std::move(target)) {}

    /// Writes "subject: text". A line for which there is no memory, or that the callback throws at, is lost.
    void report(Level level, const std::string& subject, const char* text) noexcept {
        try {
            if (callback) {
                callback->log(level, subject + ": " + text);
            }
        } catch (...) {
            // Whoever reports has more to do, often on a thread where nobody else would catch it.
        }
    }

private:
    const std::unique_ptr<WifiProjectionProtocolLoggingCallback> callback;
};

}  // namespace wifi_projection_protocol
