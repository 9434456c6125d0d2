#pragma once

#include "Benchmarks/RoundTrip/Support/Handshaker.h"

namespace bench {

/// A loop on one thread: accept, handshake, read, close.
Handshaker openSslHandshaker();

/// The receiver's control service with the protocol started, its TCP server and the library.
Handshaker ourHandshaker();

}  // namespace bench
