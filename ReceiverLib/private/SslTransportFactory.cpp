#include "wifi_projection_protocol/SslTransportFactory.h"

#include "private/Limits.h"
#include "private/SslContext.h"
#include "private/SslTransport.h"

namespace wifi_projection_protocol {

struct SslTransportFactory::Context {
    SslContext ssl;  // empty: the texts were not valid
    SslTimeLimits limits;
};

namespace {

std::chrono::milliseconds handshakeLimit(std::optional<long> milliseconds) {
    return milliseconds && *milliseconds > 0 ? std::chrono::milliseconds(*milliseconds) : kHandshakeTimeLimit;
}

}  // namespace

SslTransportFactory::SslTransportFactory(const std::string& certificate, const std::string& privateKey,
                                         const std::string& caCertificate,
                                         std::optional<long> handshakeTimeLimitMs, bool acceptAnyPhone,
                                         std::string serviceName)
    : context(std::make_unique<Context>()) {
    context->ssl = makeServerContext({certificate, privateKey, caCertificate}, acceptAnyPhone, serviceName);
    context->limits.handshake = handshakeLimit(handshakeTimeLimitMs);
}

SslTransportFactory::~SslTransportFactory() = default;

std::unique_ptr<TransportInputOutput> SslTransportFactory::CreateSslTransportInputOutput(int fd) {
    if (!context->ssl) {
        return nullptr;
    }
    return SslTransport::wrap(context->ssl.get(), fd, context->limits);
}

}  // namespace wifi_projection_protocol
