#pragma once

#include <cstdint>
#include <future>
#include <string>

#include "wifi_discovery/WifiDiscovery.h"
#include "wifi_projection_protocol/TransportInputOutput.h"

namespace wifi_projection_protocol {

/// One transport to a phone, as the rest of the library sees it. Any thread may call it.
class PhoneLink {
public:
    virtual ~PhoneLink() = default;

    /// The name that the transport was handed over with, and the way it takes. Fixed.
    virtual const std::string& name() const = 0;
    virtual TransportType type() const = 0;

    /// Sends Start. @return the phone's result; 0 when the link ends before that.
    virtual std::future<std::uint32_t> startProjection(wifi_discovery::StartRequestReason reason) = 0;

    /// Closes the transport and ends the conversation, without waiting for its thread. Once is enough.
    virtual void drop() = 0;
};

}  // namespace wifi_projection_protocol
