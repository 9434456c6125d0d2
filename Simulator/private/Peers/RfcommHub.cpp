#include "Simulator/private/Peers/RfcommHub.h"

#include <algorithm>
#include <utility>

namespace simulator {

RfcommHub::RfcommHub(PollLoop& pollLoop, Handlers hubHandlers)
    : loop(pollLoop),
      handlers(std::move(hubHandlers)),
      listener(pollLoop, kRfcommSocketName, [this](UniqueFd fd) { onAccepted(std::move(fd)); }) {}

bool RfcommHub::send(std::uint8_t device, std::string_view bytes) {
    const auto found = channelOf(device);
    if (found == channels.end()) {
        return false;
    }
    found->second.stream->send(bytes);
    return true;
}

bool RfcommHub::drop(std::uint8_t device) {
    const auto found = channelOf(device);
    if (found == channels.end()) {
        return false;
    }
    channels.erase(found);
    return true;
}

void RfcommHub::onAccepted(UniqueFd fd) {
    const ChannelId channel = nextChannel++;
    channels[channel].stream = std::make_unique<ByteStream>(
        loop, std::move(fd), [this, channel](std::string_view bytes) { onBytes(channel, bytes); },
        [this, channel] { onGone(channel); });
}

void RfcommHub::onBytes(ChannelId channel, std::string_view bytes) {
    const auto found = channels.find(channel);
    if (found == channels.end()) {
        return;
    }
    if (!found->second.device) {
        link(channel, static_cast<std::uint8_t>(bytes.front()));
        bytes.remove_prefix(1);
    }
    if (!bytes.empty()) {
        handlers.received(*found->second.device, bytes);
    }
}

void RfcommHub::link(ChannelId channel, std::uint8_t device) {
    drop(device);
    channels.at(channel).device = device;
    handlers.linked(device);
}

void RfcommHub::onGone(ChannelId channel) {
    const auto found = channels.find(channel);
    if (found == channels.end()) {
        return;
    }
    const std::optional<std::uint8_t> device = found->second.device;
    channels.erase(found);
    if (device) {
        handlers.gone(*device);
    }
}

RfcommHub::Channels::iterator RfcommHub::channelOf(std::uint8_t device) {
    return std::find_if(channels.begin(), channels.end(),
                        [device](const auto& entry) { return entry.second.device == device; });
}

}  // namespace simulator
