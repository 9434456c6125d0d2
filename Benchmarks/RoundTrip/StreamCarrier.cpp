#include <unistd.h>

#include <stdexcept>

#include "Benchmarks/RoundTrip/Carriers.h"
#include "Benchmarks/RoundTrip/Support/EncodedMessage.h"
#include "LibWpp/WppLocalSocketClientStream.h"
#include "LibWpp/WppLocalSocketServerStream.h"

namespace bench {

namespace {

using wifi_projection_protocol::WppLocalSocketClientStream;
using wifi_projection_protocol::WppLocalSocketServerStream;

constexpr const char* kSocketName = "ours";
constexpr std::uint8_t kHandled = 1;

void serve() {
    WppLocalSocketServerStream stream;
    stream.open(kSocketName, [&stream](const void*, unsigned) { stream.send(&kHandled, sizeof(kHandled)); });
    for (;;) {
        pause();
    }
}

class StreamAsker final : public Asker {
public:
    StreamAsker() { stream.open(kSocketName); }

    void use(const std::string& message) override { request = std::make_unique<EncodedMessage>(message); }

    void exchange() override {
        if (stream.communicate(*request) != kHandled) {
            throw std::runtime_error("a message was not acknowledged");
        }
    }

private:
    WppLocalSocketClientStream stream;
    std::unique_ptr<EncodedMessage> request;
};

}  // namespace

Carrier streamCarrier() {
    return {"ours", serve, [] { return std::make_unique<StreamAsker>(); }};
}

}  // namespace bench
