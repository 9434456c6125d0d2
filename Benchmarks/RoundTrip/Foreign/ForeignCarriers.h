#pragma once

#include "Benchmarks/RoundTrip/Support/Carrier.h"

namespace bench {

/// ZeroMQ, REQ and REP over a UNIX-domain socket.
Carrier zeroMqCarrier();

/// nng, req0 and rep0 over a UNIX-domain socket.
Carrier nngCarrier();

/// sd-bus without a broker: method calls with an array of bytes, answered by a byte.
Carrier sdBusCarrier();

/// gRPC, unary calls of the synchronous API over a UNIX-domain socket.
Carrier grpcCarrier();

}  // namespace bench
