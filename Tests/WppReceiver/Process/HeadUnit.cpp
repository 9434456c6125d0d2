#include "Tests/WppReceiver/Process/HeadUnit.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>

#include "LibWpp/SppMessages.h"
#include "LibWpp/WppIPCMessageHeader.h"

namespace wpp_test {

using namespace wifi_projection_protocol;

namespace {

constexpr std::uint16_t kPort = 30516;
constexpr const char* kUuid = "4DE17A0052CB11E6BDF40800200C9A66";

sockaddr_in loopbackAddress(const std::string& host, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, host.c_str(), &address.sin_addr);
    return address;
}

}  // namespace

std::string encode(WppIPCMessageCore& message) {
    message.serialize();
    return {message.archive.getBuffer(), message.archive.getBuffer() + message.archive.getSize()};
}

std::string headerOnly(std::int32_t id) {
    WppIPCMessageHeader header;
    header.messageId = id;
    return encode(header);
}

HeadUnit::HeadUnit(Peers peers)
    : receiverIdentity(ca.issue("head unit", simulator::Usage::kServer)),
      phoneIdentity(ca.issue("phone", simulator::Usage::kClient)),
      receiver(directory.path()) {
    directory.enter();
    if (peers == Peers::kListening) {
        listen();
        awaitConnections();
    }
    commands = FramedPeer::connectTo("WPP_SOCKET_TO_WPP");
}

void HeadUnit::listen() {
    controllerPeer = std::make_unique<AnsweringPeer>(
        "WPP_SOCKET_FROM_WPP", [this](const std::string& frame) { return answer(frame); });
    bluetoothPeer = std::make_unique<AnsweringPeer>("WPP_SOCKET_TO_BT");
}

void HeadUnit::awaitConnections() {
    controllerPeer->waitForConnection();
    bluetoothPeer->waitForConnection();
    // A peer has accepted before the receiver knows: until a client stream's thread ends, what the receiver
    // sends on it may still be lost.
    waitUntil([this] { return receiver.threadsNamed("ClientStream") == 0; });
}

std::optional<std::string> HeadUnit::answer(const std::string& frame) const {
    if (messageIdOf(frame) == ReqGetSecureSslKeySerializer::kMessageId) {
        return encode(ResGetSecureSslKeySerializer(receiverIdentity.certificatePem,
                                                   receiverIdentity.privateKeyPem, ca.caCertificatePem()));
    }
    return std::string(1, '\1');
}

std::optional<std::string> HeadUnit::command(const std::string& payload) {
    commands.sendFrame(payload);
    return commands.receiveFrame();
}

void HeadUnit::start(Tls tls) {
    const bool configured = tls == Tls::kConfigured;
    commands.sendFrame(encode(StartWifiProjectionProtocolSerializer(
        wifi_discovery::WifiChannelType{1}, {36, 40}, common::HeadUnitInfo(),
        configured ? receiverIdentity.certificatePem : "", configured ? receiverIdentity.privateKeyPem : "",
        configured ? ca.caCertificatePem() : "")));
    // 1000 has no reply; that of the next command comes when it is done.
    command(encode(SetProjectionPortInfoSerializer("127.0.0.1", kPort)));
}

std::optional<int> HeadUnit::terminate(std::chrono::milliseconds limit) {
    commands.sendFrame(headerOnly(kTerminateMessageId));
    return receiver.waitForExit(limit);
}

std::shared_ptr<PhoneChannel> HeadUnit::connectRfcomm(std::uint8_t id, const std::string& clientId) {
    command(encode(SetWifiInfoSerializer("network", "passphrase", "address", 36)));
    command(encode(AddDeviceInfoSerializer(id, "phone", clientId)));
    auto channel = std::make_shared<RfcommChannel>(*bluetoothPeer, id);
    command(encode(RfcommConnectedSerializer(id)));
    return channel;
}

FileDescriptor HeadUnit::connectTcp(const std::string& fromAddress) {
    FileDescriptor result(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in local = loopbackAddress(fromAddress, 0);
    sockaddr_in remote = loopbackAddress("127.0.0.1", kPort);
    bind(result.get(), reinterpret_cast<sockaddr*>(&local), sizeof(local));
    // The server listens a moment after command 1000 is done.
    const bool connected = waitUntil(
        [&] { return connect(result.get(), reinterpret_cast<sockaddr*>(&remote), sizeof(remote)) == 0; });
    return connected ? std::move(result) : FileDescriptor();
}

std::shared_ptr<TlsPhone> HeadUnit::connectTls(const std::string& fromAddress) {
    auto phone = std::make_shared<TlsPhone>(connectTcp(fromAddress),
                                            TlsPhoneOptions{phoneIdentity, ca.caCertificatePem(), 0});
    return phone->handshake() ? phone : nullptr;
}

std::shared_ptr<TlsPhone> HeadUnit::bringUp(std::uint8_t id, const std::string& clientId,
                                            const std::string& address) {
    const std::size_t connectedBefore = notifications(OnClientConnectedSerializer::kMessageId);
    if (!TestPhone(connectRfcomm(id, clientId)).introduce(clientId)) {
        return nullptr;
    }
    std::shared_ptr<TlsPhone> channel = connectTls(address);
    if (channel == nullptr) {
        return nullptr;
    }
    TestPhone phone(channel);
    const bool ready = phone.introduce(clientId) && phone.sayReady() &&
                       waitForNotification(OnClientConnectedSerializer::kMessageId, connectedBefore + 1);
    return ready ? channel : nullptr;
}

std::size_t HeadUnit::notifications(std::int32_t id) const {
    const std::vector<std::int32_t> ids = controllerPeer->ids();
    return static_cast<std::size_t>(std::count(ids.begin(), ids.end(), id));
}

bool HeadUnit::waitForNotification(std::int32_t id, std::size_t count) const {
    return waitUntil([&] { return notifications(id) >= count; });
}

RfcommChannel::RfcommChannel(AnsweringPeer& bluetoothProcess, std::uint8_t deviceId)
    : process(bluetoothProcess),
      id(deviceId),
      toReceiver(FramedPeer::connectTo("WPP_SOCKET_FROM_BT")),
      framesSeen(bluetoothProcess.frames().size()) {}

bool RfcommChannel::send(const std::string& bytes) {
    return sendForService(kUuid, bytes);
}

bool RfcommChannel::sendForService(const std::string& uuid, const std::string& bytes) {
    RecvSppDataSerializer message(id, uuid, reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                  static_cast<std::uint32_t>(bytes.size()));
    return toReceiver.sendFrame(encode(message)) && toReceiver.receiveFrame() == std::string(1, '\1');
}

std::string RfcommChannel::receive() {
    std::string bytes;
    waitUntil([&] {
        bytes = collect();
        return !bytes.empty();
    });
    return bytes;
}

std::string RfcommChannel::collect() {
    std::string bytes;
    const std::vector<std::string> frames = process.frames();
    for (; framesSeen < frames.size(); ++framesSeen) {
        const std::string& frame = frames[framesSeen];
        SendSppDataSerializer message;
        if (messageIdOf(frame) == SendSppDataSerializer::kMessageId) {
            message.deserialize(frame.data(), static_cast<unsigned>(frame.size()));
            if (message.btDeviceId == id) {
                bytes.append(message.data, message.data + message.dataLength);
            }
        }
    }
    return bytes;
}

}  // namespace wpp_test
