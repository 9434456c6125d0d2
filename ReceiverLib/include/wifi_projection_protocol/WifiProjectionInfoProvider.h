#pragma once

#include <string>

#include "wifi_projection_protocol/InetSocketAddress.h"

namespace wifi_projection_protocol {

/// Supplies the settings that the library tells a phone. The library owns it and calls it from its own
/// threads.
class WifiProjectionInfoProvider {
public:
    virtual ~WifiProjectionInfoProvider() = default;

    /// Where the phone is told to open its TCP connection.
    virtual InetSocketAddress projectionAddress() = 0;

    /// The Wi-Fi settings, passed to the phone as they are.
    virtual std::string wifiInfo1() = 0;
    virtual std::string wifiInfo2() = 0;
    virtual std::string wifiInfo3() = 0;
    virtual int wifiInfo4() = 0;
};

}  // namespace wifi_projection_protocol
