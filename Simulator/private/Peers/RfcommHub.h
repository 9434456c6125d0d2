#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string_view>

#include "Simulator/private/Io/ByteStream.h"
#include "Simulator/private/Io/Listener.h"

namespace simulator {

/// The local socket that stands for the radio between the Bluetooth process and the phones.
inline constexpr const char* kRfcommSocketName = "SIM_SOCKET_RFCOMM";

/// Where the phones' RFCOMM channels end: a phone connects, says its device id in one byte, and everything
/// behind is the channel's bytes, both ways. One link for each device id; a new one replaces the old one. The
/// handlers run from within the loop.
class RfcommHub {
public:
    struct Handlers {
        std::function<void(std::uint8_t device)> linked;
        std::function<void(std::uint8_t device, std::string_view bytes)> received;
        std::function<void(std::uint8_t device)> gone;  ///< the phone has closed; not after drop()
    };

    /// @throws std::system_error when it cannot listen.
    RfcommHub(PollLoop& pollLoop, Handlers hubHandlers);

    /// @return false when the device has no link.
    bool send(std::uint8_t device, std::string_view bytes);

    /// Closes the device's link. @return false when it has none.
    bool drop(std::uint8_t device);

private:
    using ChannelId = std::uint64_t;
    struct Channel {
        std::unique_ptr<ByteStream> stream;
        std::optional<std::uint8_t> device;  // empty until the phone has said it
    };
    using Channels = std::map<ChannelId, Channel>;

    void onAccepted(UniqueFd fd);
    void onBytes(ChannelId channel, std::string_view bytes);
    void onGone(ChannelId channel);
    void link(ChannelId channel, std::uint8_t device);
    Channels::iterator channelOf(std::uint8_t device);

    PollLoop& loop;
    const Handlers handlers;
    Channels channels;
    ChannelId nextChannel = 1;
    Listener listener;
};

}  // namespace simulator
