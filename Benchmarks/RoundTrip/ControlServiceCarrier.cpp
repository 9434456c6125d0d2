#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <string>

#include "Benchmarks/RoundTrip/Carriers.h"
#include "Benchmarks/RoundTrip/Support/Sockets.h"
#include "LibWpp/ControlMessages.h"
#include "LibWpp/WppLocalSocketClientStream.h"
#include "Proxy/QmcWirelessProjectionService.h"
#include "Tests/Support/OwnNetwork.h"
#include "inc/QMFramework.h"

namespace bench {

namespace {

using namespace wifi_projection_protocol;

constexpr const char* kSocketName = "WPP_SOCKET_TO_WPP";
constexpr unsigned kUnknownPhone = 9;
constexpr std::uint8_t kHandled = 1;

void serve() {
    // The started protocol listens on a TCP port of its own; not being allowed a network costs only that.
    static_cast<void>(wpp_test::enterOwnNetwork());
    qm_FwInitialize("WppReceiver", -1);
    QmcWirelessProjectionService service;
    service.openServer();
    service.waitExit();
}

std::string frameOf(WppIPCMessageCore&& message) {
    message.serialize();
    const std::uint32_t length = message.archive.getSize();
    std::string frame(kPrefixSize, '\0');
    std::memcpy(frame.data(), &length, sizeof(length));
    frame.append(reinterpret_cast<const char*>(message.archive.getBuffer()), length);
    return frame;
}

/// The command that starts the protocol gets no answer, so a connection of its own carries it, with a second
/// command behind it that does.
void startProtocol() {
    const int socket = connectLocal(kSocketName);
    const std::string commands =
        frameOf(StartWifiProjectionProtocolSerializer()) + frameOf(DeleteDeviceInfoSerializer(kUnknownPhone));
    AckFrame ack{};
    sendAll(socket, commands.data(), commands.size());
    receiveAll(socket, ack.bytes, sizeof(ack.bytes));
    close(socket);
    if (ack.bytes[kPrefixSize] != kHandled) {
        throw std::runtime_error("the protocol was not started");
    }
}

class ControllerAsker final : public Asker {
public:
    ControllerAsker() {
        startProtocol();
        stream.open(kSocketName);
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
    return {"ours", serve, [] { return std::make_unique<ControllerAsker>(); }};
}

}  // namespace bench
