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

    /// Asks the provider anew. Throws std::bad_alloc, with the settings half filled in. They are the caller's, in the
    /// caller's arena: without memory the generated copy constructor loses the channels, and the generated move into
    /// an arena ends the process.
    void fillIn(phone_protocol::Settings& settings) const;

private:
    const std::unique_ptr<WifiProjectionInfoProvider> provider;
    phone_protocol::Settings fixed;
};

}  // namespace wifi_projection_protocol
