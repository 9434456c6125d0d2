#include <stdexcept>

#include "Benchmarks/RoundTrip/Carriers.h"
#include "Benchmarks/RoundTrip/ControlService.h"
#include "LibWpp/ControlMessages.h"
#include "LibWpp/WppLocalSocketClientStream.h"

namespace bench {

namespace {

using namespace wifi_projection_protocol;

constexpr std::uint8_t kHandled = 1;

class ControllerAsker final : public Asker {
public:
    ControllerAsker() {
        startProtocol(StartWifiProjectionProtocolSerializer());
        stream.open(kControlSocketName);
    }

    void use(const std::string&) override {}

    void exchange() override {
        DeleteDeviceInfoSerializer command(kUnknownPhone);
        if (stream.communicate(command) != kHandled) {
            throw std::runtime_error("a command was not acknowledged");
        }
    }

private:
    WppLocalSocketClientStream stream;
};

}  // namespace

Carrier controlServiceCarrier() {
    return {"ours", serveControlService, [] { return std::make_unique<ControllerAsker>(); }};
}

}  // namespace bench
