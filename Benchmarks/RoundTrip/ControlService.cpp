#include "Benchmarks/RoundTrip/ControlService.h"

#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>

#include "Benchmarks/RoundTrip/Support/Sockets.h"
#include "Proxy/QmcWirelessProjectionService.h"
#include "inc/QMFramework.h"

namespace bench {

namespace {

using namespace wifi_projection_protocol;

constexpr std::uint8_t kHandled = 1;

std::string frameOf(WppIPCMessageCore&& message) {
    message.serialize();
    const std::uint32_t length = message.archive.getSize();
    std::string frame(kPrefixSize, '\0');
    std::memcpy(frame.data(), &length, sizeof(length));
    frame.append(reinterpret_cast<const char*>(message.archive.getBuffer()), length);
    return frame;
}

}  // namespace

void serveControlService() {
    // Of a service that was killed; a socket file in the way is kept.
    std::filesystem::remove(kControlSocketName);
    qm_FwInitialize("WppReceiver", -1);
    QmcWirelessProjectionService service;
    service.openServer();
    service.waitExit();
}

/// The command gets no answer, so it takes a connection of its own, with a second command behind it that does.
void startProtocol(StartWifiProjectionProtocolSerializer&& command) {
    const int socket = connectLocal(kControlSocketName);
    const std::string commands =
        frameOf(std::move(command)) + frameOf(DeleteDeviceInfoSerializer(kUnknownPhone));
    AckFrame ack{};
    sendAll(socket, commands.data(), commands.size());
    receiveAll(socket, ack.bytes, sizeof(ack.bytes));
    close(socket);
    if (ack.bytes[kPrefixSize] != kHandled) {
        throw std::runtime_error("the protocol was not started");
    }
}

}  // namespace bench
