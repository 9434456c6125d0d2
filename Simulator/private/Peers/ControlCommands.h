#pragma once

#include <cstdint>
#include <string>

#include "Simulator/private/Peers/Json.h"

namespace simulator {

/// Builds the payload of the command with this id from the fields of a JSON object, named as the messages'
/// members are (`btDeviceId`, `wifiInfo1`, ...); absent fields are 0 or empty. `headUnitInfo` is a list of up
/// to eight texts, `channelList` one of numbers. An id that is no command gives a message of the id alone.
/// @throws JsonError when a field has the wrong type or is out of range.
std::string buildCommand(std::int32_t messageId, const Json& fields);

/// Is the command answered with a reply byte? All but the start of the protocol are.
bool isReplied(std::int32_t messageId);

/// Builds the answer to the request for TLS material from the fields `sslCertificate`, `sslPrivateKey` and
/// `sslCaCertificate`.
std::string buildKeyAnswer(const Json& fields);

}  // namespace simulator
