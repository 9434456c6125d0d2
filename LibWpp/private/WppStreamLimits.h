#pragma once

namespace wifi_projection_protocol {

/// The largest reply that a link's client takes, in bytes; every reply buffer holds as much.
constexpr int kMaxReceiveSize = 16384;

}  // namespace wifi_projection_protocol
