#pragma once

#include <string>
#include <utility>

namespace wifi_projection_protocol {

/// A host text and a port number. A plain value.
class InetSocketAddress {
public:
    InetSocketAddress(std::string host, unsigned short port) : hostText(std::move(host)), portNumber(port) {}

    const std::string& host() const { return hostText; }
    unsigned short port() const { return portNumber; }

private:
    std::string hostText;
    unsigned short portNumber;
};

}  // namespace wifi_projection_protocol
