#pragma once

#include <cstdint>
#include <string>

#include "Foundation/QMDescriptor.h"

namespace wpp_test {

/// A TCP connection to 127.0.0.1:port from the given loopback address.
/// @return the connected socket; none when nobody listens.
QMDescriptor connectTo(std::uint16_t port, const std::string& fromAddress = "127.0.0.1");

/// A TCP socket that listens on every address. Port 0 takes a free one; portOf tells which.
QMDescriptor listenOn(std::uint16_t port);

/// The local port of a socket.
std::uint16_t portOf(const QMDescriptor& socket);

/// A port that was free a moment ago.
std::uint16_t freePort();

}  // namespace wpp_test
