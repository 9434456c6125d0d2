#include "wifi_projection_protocol/SslTransportFactory.h"

namespace wifi_projection_protocol {

struct SslTransportFactory::Context {};

SslTransportFactory::SslTransportFactory(const std::string&, const std::string&, const std::string&,
                                         std::optional<long>, bool, std::string)
    : context(std::make_unique<Context>()) {}

SslTransportFactory::~SslTransportFactory() = default;

std::unique_ptr<TransportInputOutput> SslTransportFactory::CreateSslTransportInputOutput(int) {
    return nullptr;
}

}  // namespace wifi_projection_protocol
