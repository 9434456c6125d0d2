#pragma once

#include <string_view>

#include "Simulator/private/Peers/Json.h"

namespace simulator {

/// Describes what the receiver has sent to the controller: `message` (the id), `name`, and the message's
/// fields under their own names. An unknown message has the name "unknown" and its bytes in hexadecimal.
Json describeNotification(std::string_view payload);

}  // namespace simulator
