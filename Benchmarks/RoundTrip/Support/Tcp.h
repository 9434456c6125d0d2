#pragma once

#include <cstdint>

namespace bench {

/// Where every server listens, in a network of the program's own where the system allows one.
constexpr std::uint16_t kTcpPort = 30516;
constexpr int kTcpBacklog = 10;

int listenTcp();

/// Connects from the loopback address 127.0.0.`host`, waiting up to 10 s for a server to come up. Closing the socket
/// resets the connection, so that no run leaves thousands of waiting ones behind.
int connectTcp(unsigned host);

}  // namespace bench
