#pragma once

#include <functional>
#include <string>

#include "Benchmarks/RoundTrip/Support/Case.h"

namespace bench {

/// PEM texts of a server that asks its clients for certificates.
struct TlsMaterial {
    std::string certificate;
    std::string privateKey;
    std::string authority;
};

/// A TLS server that takes connections until its process is killed.
struct Handshaker {
    std::string name;
    std::function<void(const TlsMaterial&)> serve;
    /// Runs in the client's process before the first connection.
    std::function<void(const TlsMaterial&)> prepare = [](const TlsMaterial&) {};
};

/// Full handshakes per second, with certificates on both sides: of one client on the server's own processor, and of
/// four clients at once on all of them; and the processor time that one takes the server.
Case handshakeCase(const Handshaker& handshaker);

}  // namespace bench
