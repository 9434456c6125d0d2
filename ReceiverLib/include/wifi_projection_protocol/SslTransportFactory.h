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
    /// @param certificate PEM text of the head unit's certificate, any intermediate ones after it.
    /// @param privateKey PEM text of its key, not encrypted.
    /// @param caCertificate PEM text of the authorities of the phones. A phone needs a certificate of one of
    ///        them; with an empty text phones need none. Texts that make no valid context, an empty
    ///        certificate or key among them, leave a factory that wraps nothing.
    /// @param handshakeTimeLimitMs how long a phone may take for its handshake in all; 5000 when it is empty,
    ///        0 or below.
    /// @param acceptAnyPhone with a CA given, lets a phone without a certificate in all the same; one with a
    ///        certificate of somebody else is still turned away.
    /// @param serviceName name of the service, part of the TLS session identity.
    SslTransportFactory(const std::string& certificate, const std::string& privateKey,
                        const std::string& caCertificate, std::optional<long> handshakeTimeLimitMs,
                        bool acceptAnyPhone, std::string serviceName);

    /// Releases the TLS context.
    ~SslTransportFactory();

    SslTransportFactory(const SslTransportFactory&) = delete;
    SslTransportFactory& operator=(const SslTransportFactory&) = delete;

    /// Wraps a connected stream socket without waiting for the phone; the handshake runs within the
    /// transport's first read or write. TLS 1.2 and later only. A write waits at most 5 s for a phone that
    /// does not read.
    /// @return the transport, which owns `fd` from then on and makes it non-blocking and close-on-exec; empty
    ///         on failure, `fd` then stays the caller's as it was.
    std::unique_ptr<TransportInputOutput> CreateSslTransportInputOutput(int fd);

private:
    struct Context;
    std::unique_ptr<Context> context;
};

}  // namespace wifi_projection_protocol
