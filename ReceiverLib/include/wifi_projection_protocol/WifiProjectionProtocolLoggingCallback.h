#pragma once

#include <string>

namespace wifi_projection_protocol {

/// Receives the library's own log lines. The library owns it and calls it from its own threads.
class WifiProjectionProtocolLoggingCallback {
public:
    virtual ~WifiProjectionProtocolLoggingCallback() = default;

    /// @param level 0 information, 1 warning, 2 error.
    /// @param text one line without its end.
    virtual void log(int level, const std::string& text) = 0;
};

}  // namespace wifi_projection_protocol
