#pragma once

#include "Simulator/private/Road/PrivateDirectory.h"

namespace simulator {

/// Makes the TLS material of a run and writes it into its directory: "ca.pem"; "receiver.pem" and
/// "receiver.key"; "phone.pem" and "phone.key"; and, of an authority that the receiver does not know,
/// "foreign-phone.pem" and "foreign-phone.key".
/// @throws std::exception when it cannot be made or written.
void writeTlsFiles(const PrivateDirectory& directory);

}  // namespace simulator
