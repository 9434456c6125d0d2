#pragma once

#include "LibWpp/ControlMessages.h"

namespace bench {

constexpr const char* kControlSocketName = "WPP_SOCKET_TO_WPP";

/// A phone that the receiver has never heard of.
constexpr unsigned kUnknownPhone = 9;

/// Runs the framework and the control service, as the receiver's process does, until its process is killed.
void serveControlService();

/// Has a control service in another process start the protocol, and returns once that is done.
/// @throws std::runtime_error when it is refused.
void startProtocol(wifi_projection_protocol::StartWifiProjectionProtocolSerializer&& command);

}  // namespace bench
