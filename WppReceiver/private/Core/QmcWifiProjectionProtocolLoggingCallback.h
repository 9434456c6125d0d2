#pragma once

#include <string>

#include "wifi_projection_protocol/WifiProjectionProtocolLoggingCallback.h"

namespace wifi_projection_protocol {

/// Drops the library's own log lines. The library owns it.
class QmcWifiProjectionProtocolLoggingCallback final : public WifiProjectionProtocolLoggingCallback {
public:
    void log(int, const std::string&) override {}
};

}  // namespace wifi_projection_protocol
