#include "private/SettingsSource.h"

#include <cstdint>
#include <utility>

namespace wifi_projection_protocol {

SettingsSource::SettingsSource(std::unique_ptr<WifiProjectionInfoProvider> infoProvider,
                               wifi_discovery::WifiChannelType channelType,
                               const std::vector<unsigned int>& channelList, const std::string& headUnitInfo)
    : provider(std::move(infoProvider)) {
    fixed.set_channel_type(static_cast<std::uint32_t>(channelType));
    fixed.mutable_channels()->Add(channelList.begin(), channelList.end());
    fixed.set_head_unit_info(headUnitInfo);
}

void SettingsSource::fillIn(phone_protocol::Settings& settings) const {
    settings = fixed;
    const InetSocketAddress address = provider->projectionAddress();
    settings.set_host(address.host());
    settings.set_port(address.port());
    settings.set_wifi_info_1(provider->wifiInfo1());
    settings.set_wifi_info_2(provider->wifiInfo2());
    settings.set_wifi_info_3(provider->wifiInfo3());
    settings.set_wifi_info_4(provider->wifiInfo4());
}

}  // namespace wifi_projection_protocol
