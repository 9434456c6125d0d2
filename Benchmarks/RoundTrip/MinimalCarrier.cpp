#include <algorithm>
#include <cstring>
#include <vector>

#include "Benchmarks/RoundTrip/Carriers.h"
#include "Benchmarks/RoundTrip/Support/Sockets.h"

namespace bench {

namespace {

constexpr const char* kName = "minimal";

void serve() {
    const int peer = acceptOne(listenLocal(kName));
    const AckFrame ack = makeAck();
    std::vector<char> payload;
    for (;;) {
        std::uint32_t length = 0;
        receiveAll(peer, &length, sizeof(length));
        payload.resize(std::max<std::size_t>(payload.size(), length));
        receiveAll(peer, payload.data(), length);
        sendAll(peer, ack.bytes, sizeof(ack.bytes));
    }
}

class MinimalAsker final : public Asker {
public:
    void use(const std::string& message) override {
        const auto length = static_cast<std::uint32_t>(message.size());
        frame.assign(kPrefixSize, '\0');
        std::memcpy(frame.data(), &length, sizeof(length));
        frame += message;
    }

    void exchange() override {
        AckFrame ack{};
        sendAll(socket, frame.data(), frame.size());
        receiveAll(socket, ack.bytes, sizeof(ack.bytes));
    }

private:
    const int socket = connectLocal(kName);
    std::string frame;
};

}  // namespace

Carrier minimalCarrier() {
    return {kName, serve, [] { return std::make_unique<MinimalAsker>(); }};
}

}  // namespace bench
