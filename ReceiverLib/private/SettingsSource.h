#pragma once

#include <memory>
#include <string>
#include <vector>

#include "phone/PhoneProtocol.pb.h"
#include "wifi_discovery/WifiDiscovery.h"
#include "wifi_projection_protocol/WifiProjectionInfoProvider.h"

namespace wifi_projection_protocol {

/// The settings for the phones: what is fixed for the life of the protocol, and what the info provider says
/// at the moment. Any thread.
class SettingsSource {
public:
    /// @param headUnitInfo a serialised common.HeadUnitInfo.
    SettingsSource(std::unique_ptr<WifiProjectionInfoProvider> infoProvider,
                   wifi_discovery::WifiChannelType channelType, const std::vector<unsigned int>& channelList,
                   const std::string& headUnitInfo);

    /// Asks the provider anew.
    phone_protocol::HeadUnitMessage current() const;

private:
    const std::unique_ptr<WifiProjectionInfoProvider> provider;
    phone_protocol::Settings fixed;
};

}  // namespace wifi_projection_protocol
