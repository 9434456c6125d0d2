#pragma once

#include "Benchmarks/RoundTrip/Support/Acceptor.h"

namespace bench {

/// Blocking accept, then close.
Acceptor minimalAcceptor();

/// The product's system calls: a wait on the listening socket and a wake-up, accept, then close.
Acceptor prescribedAcceptor();

/// The product's TCP server; who gets its sockets closes them.
Acceptor ourAcceptor();

}  // namespace bench
