#include <cstring>

#include "Benchmarks/RoundTrip/Carriers.h"
#include "Benchmarks/RoundTrip/Support/PrescribedStream.h"
#include "Benchmarks/RoundTrip/Support/Sockets.h"

namespace bench {

namespace {

constexpr const char* kName = "prescribed";
constexpr const char* kCopyingName = "prescribed-copying";

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

void serveCopying() {
    const AckFrame ack = makeAck();
    servePrescribed(
        kCopyingName,
        [&ack](int peer, const std::uint8_t*, std::uint32_t) { sendAll(peer, ack.bytes, sizeof(ack.bytes)); },
        PayloadBuffer::kFresh);
}

class CopyingAsker final : public Asker {
public:
    void use(const std::string& newMessage) override { message = newMessage; }

    void exchange() override {
        const auto length = static_cast<std::uint32_t>(message.size());
        const std::unique_ptr<char[]> frame(new char[kPrefixSize + message.size()]);
        std::memcpy(frame.get(), &length, sizeof(length));
        std::memcpy(frame.get() + kPrefixSize, message.data(), message.size());
        exchangePrescribed(socket, frame.get(), kPrefixSize + message.size());
    }

private:
    const int socket = connectLocal(kCopyingName);
    std::string message;
};

}  // namespace

Carrier prescribedCopyingCarrier() {
    return {kCopyingName, serveCopying, [] { return std::make_unique<CopyingAsker>(); }};
}

Carrier prescribedCarrier() {
    return {kName, serve, [] { return std::make_unique<PrescribedAsker>(); }};
}

}  // namespace bench
