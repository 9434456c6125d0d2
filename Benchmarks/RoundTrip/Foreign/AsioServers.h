#pragma once

#include "Benchmarks/RoundTrip/Support/Acceptor.h"
#include "Benchmarks/RoundTrip/Support/Handshaker.h"

namespace bench {

/// Asio's asynchronous accept on one thread, then close.
Acceptor asioAcceptor();

/// Asio's asynchronous accept, handshake and read on as many threads as there are processors.
Handshaker asioHandshaker();

}  // namespace bench
