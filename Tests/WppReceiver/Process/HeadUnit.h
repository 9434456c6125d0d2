#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "LibWpp/ControlMessages.h"
#include "Simulator/CertificateAuthority.h"
#include "Tests/ReceiverLib/Support/PhoneChannel.h"
#include "Tests/ReceiverLib/Support/TestPhone.h"
#include "Tests/ReceiverLib/Support/TlsPhone.h"
#include "Tests/Support/FramedPeer.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/WppReceiver/Process/ReceiverProcess.h"
#include "Tests/WppReceiver/Support/AnsweringPeer.h"

namespace wpp_test {

/// The encoded message, as one frame carries it.
std::string encode(wifi_projection_protocol::WppIPCMessageCore& message);
inline std::string encode(wifi_projection_protocol::WppIPCMessageCore&& message) {
    return encode(message);
}
std::string headerOnly(std::int32_t id);

/// The receiver's process between a controller and a Bluetooth process that both acknowledge what they are
/// sent. The test is what they do beyond that.
class HeadUnit {
public:
    enum class Peers { kListening, kAbsent };
    enum class Tls { kConfigured, kRequested };

    /// Starts the receiver in a directory of its own, which becomes the working directory of the test, and
    /// waits until it is connected to the peers that listen.
    explicit HeadUnit(Peers peers = Peers::kListening);

    /// Begins to listen for the receiver's client streams.
    void listen();

    /// Sends a command to the receiver. @return the reply, nothing when none comes.
    std::optional<std::string> command(const std::string& payload);

    /// Sends command 1000, with the TLS material in it or left to a request, and waits until it is done.
    void start(Tls tls = Tls::kConfigured);

    /// Sends command 1 and waits for the end. @return the exit status.
    std::optional<int> terminate(std::chrono::milliseconds limit = kGenerousLimit);

    /// Announces a phone: settings, its record, its RFCOMM link. @return its end of the link.
    std::shared_ptr<PhoneChannel> connectRfcomm(std::uint8_t id, const std::string& clientId);

    /// Opens a TCP connection to the receiver from the given loopback address.
    static wifi_projection_protocol::FileDescriptor connectTcp(const std::string& fromAddress);

    /// Opens a TLS connection with the phone's certificate. @return it; null when it could not be made.
    std::shared_ptr<TlsPhone> connectTls(const std::string& fromAddress);

    /// Takes a phone over RFCOMM and TLS until the receiver has told the controller that it is connected.
    /// @return its TLS end; null when a step failed.
    std::shared_ptr<TlsPhone> bringUp(std::uint8_t id, const std::string& clientId,
                                      const std::string& address);

    /// The number of notifications with this id and device, or any device.
    std::size_t notifications(std::int32_t id) const;
    bool waitForNotification(std::int32_t id, std::size_t count = 1) const;

    const simulator::CertificateAuthority& authority() const { return ca; }
    const simulator::IssuedCertificate& phoneCertificate() const { return phoneIdentity; }
    ReceiverProcess& process() { return receiver; }
    AnsweringPeer& controllerSide() { return *controllerPeer; }
    AnsweringPeer& bluetoothSide() { return *bluetoothPeer; }

private:
    void awaitConnections();
    std::optional<std::string> answer(const std::string& frame) const;

    simulator::CertificateAuthority ca;
    const simulator::IssuedCertificate receiverIdentity;
    const simulator::IssuedCertificate phoneIdentity;
    TemporaryDirectory directory;
    std::unique_ptr<AnsweringPeer> controllerPeer;
    std::unique_ptr<AnsweringPeer> bluetoothPeer;
    ReceiverProcess receiver;
    FramedPeer commands;
};

/// A phone's RFCOMM link by way of the Bluetooth process.
class RfcommChannel final : public PhoneChannel {
public:
    RfcommChannel(AnsweringPeer& bluetoothProcess, std::uint8_t deviceId);

    bool send(const std::string& bytes) override;
    std::string receive() override;
    void close() override { toReceiver.close(); }

    /// Sends an SPP message with these bytes under another service.
    bool sendForService(const std::string& uuid, const std::string& bytes);

private:
    std::string collect();

    AnsweringPeer& process;
    const std::uint8_t id;
    FramedPeer toReceiver;
    std::size_t framesSeen = 0;
};

}  // namespace wpp_test
