#pragma once

#include <memory>
#include <optional>
#include <string>

#include "wifi_projection_protocol/TransportInputOutput.h"

namespace wifi_projection_protocol {

/// Makes TLS transports of connected TCP sockets; one server context for all of them.
///
/// Use one factory from one thread at a time. It may be destroyed while transports that it made live on.
class SslTransportFactory {
public:
    /// @param certificate, privateKey, caCertificate PEM texts. Texts that make no valid context (empty ones too)
    ///        leave a factory that wraps nothing. With a CA, a phone needs a certificate of it.
    /// @param handshakeTimeLimitMs how long a phone may take for its handshake; empty: 5000.
    /// @param acceptAnyPhone with a CA given, lets a phone without a certificate in all the same.
    /// @param serviceName name of the service, part of the TLS session identity.
    SslTransportFactory(const std::string& certificate, const std::string& privateKey,
                        const std::string& caCertificate, std::optional<long> handshakeTimeLimitMs,
                        bool acceptAnyPhone, std::string serviceName);

    /// Releases the TLS context.
    ~SslTransportFactory();

    SslTransportFactory(const SslTransportFactory&) = delete;
    SslTransportFactory& operator=(const SslTransportFactory&) = delete;

    /// Wraps a connected socket without waiting for the phone; the handshake runs within the transport's first
    /// read or write. @return the transport, which owns `fd` from then on; empty on failure, `fd` then stays
    /// the caller's.
    std::unique_ptr<TransportInputOutput> CreateSslTransportInputOutput(int fd);

private:
    struct Context;
    std::unique_ptr<Context> context;
};

}  // namespace wifi_projection_protocol
