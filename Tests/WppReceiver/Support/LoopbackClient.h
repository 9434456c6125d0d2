#pragma once

#include <cstdint>
#include <string>

#include "Foundation/QMDescriptor.h"

namespace wpp_test {

/// A TCP connection to 127.0.0.1:port from the given loopback address.
/// @return the connected socket; none when nobody listens.
QMDescriptor connectTo(std::uint16_t port, const std::string& fromAddress = "127.0.0.1");

/// A TCP socket that listens on every address; none when the port is in use.
QMDescriptor listenOn(std::uint16_t port);

/// A port that was free a moment ago, below the range that the kernel takes for outgoing connections: a
/// connection to it can never meet itself.
std::uint16_t freePort();

}  // namespace wpp_test
