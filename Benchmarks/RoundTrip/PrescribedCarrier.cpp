#include <cstring>

#include "Benchmarks/RoundTrip/Carriers.h"
#include "Benchmarks/RoundTrip/Support/PrescribedStream.h"
#include "Benchmarks/RoundTrip/Support/Sockets.h"

namespace bench {

namespace {

constexpr const char* kName = "prescribed";

void serve() {
    const AckFrame ack = makeAck();
    servePrescribed(kName, [&ack](int peer, const std::uint8_t*, std::uint32_t) {
        sendAll(peer, ack.bytes, sizeof(ack.bytes));
    });
}

class PrescribedAsker final : public Asker {
public:
    void use(const std::string& message) override {
        const auto length = static_cast<std::uint32_t>(message.size());
        frame.assign(kPrefixSize, '\0');
        std::memcpy(frame.data(), &length, sizeof(length));
        frame += message;
    }

    void exchange() override { exchangePrescribed(socket, frame.data(), frame.size()); }

private:
    const int socket = connectLocal(kName);
    std::string frame;
};

}  // namespace

Carrier prescribedCarrier() {
    return {kName, serve, [] { return std::make_unique<PrescribedAsker>(); }};
}

}  // namespace bench
