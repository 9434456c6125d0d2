#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Simulator/private/Io/ByteStream.h"
#include "Simulator/private/Peers/OrderBook.h"
#include "Simulator/private/Peers/TcpLink.h"
#include "phone/PhoneMessageCodec.h"
#include "phone/PhoneProtocol.pb.h"

namespace simulator {

/// Who a phone is.
struct PhoneIdentity {
    std::uint8_t device = 1;  ///< the id by which the head unit's Bluetooth process knows it
    std::string clientId;
    std::string name;
    std::string description;
};

/// A phone: one RFCOMM channel by way of the Bluetooth process, one TCP connection to the receiver, and the
/// phone's protocol over both, as it is ordered.
///
/// Until ordered otherwise it answers a start at once with the result 1. Runs on the loop's thread alone.
class PhonePeer {
public:
    PhonePeer(PollLoop& pollLoop, EventWriter& eventWriter, PhoneIdentity phoneIdentity);

    /// What it can be ordered to do; the table borrows this object.
    OrderBook::Table orders();

private:
    enum class Way { kRfcomm, kTcp };

    /// What a TCP connection is ordered to be; a refused one is tried again until `patience` is over.
    struct TcpAttempt {
        TcpLink::Address address;
        TcpManner manner = TcpManner::kTls;
        TlsCredentials credentials;
        Deadline patience;
        std::optional<Json> greeting;  ///< the order "hello" to obey as soon as TLS is done
    };

    static Way wayOf(const Json& order);
    static const char* nameOf(Way way) { return way == Way::kRfcomm ? "rfcomm" : "tcp"; }

    void connectRfcomm();
    void connectTcp(const Json& order);
    void openTcp(const TcpAttempt& attempt);
    void onTcpConnected();
    void onTlsDone(const TcpAttempt& attempt, const std::string& version);
    void sendHello(const Json& order);
    void sendWifiVersion(const Json& order);
    void sendWifiStatus(const Json& order);
    void sendMayIStart();
    void sendReady();
    void setStartAnswer(const Json& order);
    void sendBytes(const Json& order);
    void close(const Json& order);

    void send(Way way, const phone_protocol::PhoneMessage& message);
    void sendRaw(Way way, std::string_view bytes);
    void onBytes(Way way, std::string_view bytes);
    void onMessage(Way way, const std::string& serialised);
    void answerStart();
    void onTcpEnded(const TcpAttempt& attempt, const std::string& reason);

    PollLoop& loop;
    EventWriter& events;
    const PhoneIdentity identity;
    std::optional<std::uint32_t> startResult = 1;  // empty: never answers
    Milliseconds startDelay{0};
    phone_protocol::PhoneMessageDecoder rfcommDecoder;
    phone_protocol::PhoneMessageDecoder tcpDecoder;
    std::unique_ptr<ByteStream> rfcomm;
    std::unique_ptr<TcpLink> tcp;
    bool tcpConnected = false;
    PollLoop::TimerId tcpRetry = 0;
};

}  // namespace simulator
