#include "Simulator/private/Peers/PhonePeer.h"

#include <map>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Simulator/private/Io/LocalSocket.h"
#include "Simulator/private/Peers/HeadUnitMessages.h"
#include "Simulator/private/Peers/RfcommHub.h"

namespace simulator {

namespace {

using phone_protocol::PhoneMessage;

constexpr std::uint16_t kReceiverPort = 30516;
constexpr std::int64_t kLongestDelayMs = 600000;
constexpr Milliseconds kTcpRetryPeriod{20};

template <typename Value>
const Value& choose(const std::map<std::string, Value>& choices, const Json& order, const char* field,
                    const char* fallback) {
    const auto found = choices.find(textField(order, field, fallback));
    if (found == choices.end()) {
        std::string names;
        for (const auto& [name, value] : choices) {
            names += (names.empty() ? "" : ", ") + name;
        }
        throw JsonError("\"" + std::string(field) + "\" is none of " + names);
    }
    return found->second;
}

TcpManner mannerOf(const Json& order) {
    static const std::map<std::string, TcpManner> kManners{{"tls", TcpManner::kTls},
                                                           {"silent", TcpManner::kSilent},
                                                           {"plain-text", TcpManner::kPlainText},
                                                           {"half-hello", TcpManner::kHalfHello}};
    return choose(kManners, order, "manner", "tls");
}

}  // namespace

PhonePeer::PhonePeer(PollLoop& pollLoop, EventWriter& eventWriter, PhoneIdentity phoneIdentity)
    : loop(pollLoop), events(eventWriter), identity(std::move(phoneIdentity)) {}

PhonePeer::Way PhonePeer::wayOf(const Json& order) {
    static const std::map<std::string, Way> kWays{{"rfcomm", Way::kRfcomm}, {"tcp", Way::kTcp}};
    return choose(kWays, order, "link", "tcp");
}

OrderBook::Table PhonePeer::orders() {
    return {
        {"connect-rfcomm", [this](const Json&) { connectRfcomm(); }},
        {"connect-tcp", [this](const Json& order) { connectTcp(order); }},
        {"hello", [this](const Json& order) { sendHello(order); }},
        {"wifi-version", [this](const Json& order) { sendWifiVersion(order); }},
        {"wifi-status", [this](const Json& order) { sendWifiStatus(order); }},
        {"may-i-start", [this](const Json&) { sendMayIStart(); }},
        {"ready", [this](const Json&) { sendReady(); }},
        {"answer-start", [this](const Json& order) { setStartAnswer(order); }},
        {"send-bytes", [this](const Json& order) { sendBytes(order); }},
        {"close", [this](const Json& order) { close(order); }},
        {"end", [this](const Json&) { loop.stop(); }},
    };
}

void PhonePeer::connectRfcomm() {
    UniqueFd fd = connectLocal(kRfcommSocketName);
    if (!fd) {
        throw std::runtime_error("no Bluetooth process listens");
    }
    rfcommDecoder = {};
    rfcomm = std::make_unique<ByteStream>(
        loop, std::move(fd), [this](std::string_view bytes) { onBytes(Way::kRfcomm, bytes); },
        [this] {
            rfcomm.reset();
            events.report("rfcomm-closed");
        });
    rfcomm->send(std::string(1, static_cast<char>(identity.device)));
    events.report("rfcomm-connected");
}

/// With "patience_ms" a refusal is no end yet: the receiver's server opens a moment after its protocol has
/// started.
void PhonePeer::connectTcp(const Json& order) {
    const TcpAttempt attempt{
        {textField(order, "host", "127.0.0.1"), numberField<std::uint16_t>(order, "port", kReceiverPort),
         textField(order, "bind")},
        mannerOf(order),
        {textField(order, "certificate"), textField(order, "privateKey"), textField(order, "caCertificate")},
        Deadline(Milliseconds(numberField(order, "patience_ms", 0, 0, kLongestDelayMs))),
        boolField(order, "greet", false) ? std::make_optional(order) : std::nullopt};
    loop.cancel(tcpRetry);
    events.report(
        "tcp-connecting",
        {{"host", attempt.address.host}, {"port", attempt.address.port}, {"bind", attempt.address.bindTo}});
    openTcp(attempt);
}

void PhonePeer::openTcp(const TcpAttempt& attempt) {
    tcpDecoder = {};
    tcpConnected = false;
    tcp = std::make_unique<TcpLink>(
        loop, attempt.address, attempt.manner, attempt.credentials,
        TcpLink::Handlers{[this] { onTcpConnected(); },
                          [this, attempt](const std::string& version) { onTlsDone(attempt, version); },
                          [this](std::string_view plain) { onBytes(Way::kTcp, plain); },
                          [this, attempt](const std::string& reason) { onTcpEnded(attempt, reason); }});
}

void PhonePeer::onTcpConnected() {
    tcpConnected = true;
    events.report("tcp-connected");
}

void PhonePeer::onTlsDone(const TcpAttempt& attempt, const std::string& version) {
    events.report("tls-done", {{"version", version}});
    if (attempt.greeting) {
        sendHello(*attempt.greeting);
    }
}

void PhonePeer::sendHello(const Json& order) {
    PhoneMessage message;
    message.mutable_hello()->set_client_id(textField(order, "clientId", identity.clientId));
    message.mutable_hello()->set_phone_name(textField(order, "name", identity.name));
    message.mutable_hello()->set_description(textField(order, "description", identity.description));
    send(wayOf(order), message);
}

void PhonePeer::sendWifiVersion(const Json& order) {
    PhoneMessage message;
    message.mutable_wifi_version_result()->set_accepted(boolField(order, "accepted", true));
    message.mutable_wifi_version_result()->set_failure(numberField<std::uint32_t>(order, "failure", 0));
    send(wayOf(order), message);
}

void PhonePeer::sendWifiStatus(const Json& order) {
    PhoneMessage message;
    message.mutable_wifi_connect_status()->set_status(numberField<std::uint32_t>(order, "status", 0));
    message.mutable_wifi_connect_status()->set_text(textField(order, "text"));
    send(wayOf(order), message);
}

void PhonePeer::sendMayIStart() {
    PhoneMessage message;
    message.mutable_may_i_start();
    send(Way::kTcp, message);
}

void PhonePeer::sendReady() {
    PhoneMessage message;
    message.mutable_ready_for_projection();
    send(Way::kTcp, message);
}

void PhonePeer::setStartAnswer(const Json& order) {
    const bool never = boolField(order, "never", false);
    const auto result = numberField<std::uint32_t>(order, "result", 1);
    startDelay = Milliseconds(numberField(order, "after_ms", 0, 0, kLongestDelayMs));
    startResult = never ? std::nullopt : std::make_optional(result);
}

void PhonePeer::sendBytes(const Json& order) {
    sendRaw(wayOf(order), bytesOfHex(textField(order, "bytes")));
}

void PhonePeer::close(const Json& order) {
    loop.cancel(tcpRetry);
    if (wayOf(order) == Way::kRfcomm) {
        rfcomm.reset();
    } else if (tcp) {
        tcp->close();
        tcp.reset();
    }
    events.report("closed", {{"link", nameOf(wayOf(order))}});
}

void PhonePeer::send(Way way, const PhoneMessage& message) {
    sendRaw(way, phone_protocol::encodeMessage(message));
}

void PhonePeer::sendRaw(Way way, std::string_view bytes) {
    if (way == Way::kRfcomm && rfcomm) {
        rfcomm->send(bytes);
    } else if (way == Way::kTcp && tcp) {
        tcp->send(bytes);
    } else {
        throw std::runtime_error(std::string("no connection over ") + nameOf(way));
    }
}

void PhonePeer::onBytes(Way way, std::string_view bytes) {
    auto& decoder = way == Way::kRfcomm ? rfcommDecoder : tcpDecoder;
    std::vector<std::string> messages;
    const bool understood = decoder.feed(bytes.data(), bytes.size(), messages);
    for (const std::string& message : messages) {
        onMessage(way, message);
    }
    if (!understood) {
        events.report("protocol-error", {{"link", nameOf(way)}});
    }
}

void PhonePeer::onMessage(Way way, const std::string& serialised) {
    const HeadUnitEvent event = describeHeadUnitMessage(serialised);
    Json details = {{"link", nameOf(way)}};
    details.update(event.details);
    events.report(event.name, details);
    if (event.name == "start" && startResult) {
        loop.after(startDelay, [this] { answerStart(); });
    }
}

void PhonePeer::answerStart() {
    if (!tcp || !startResult) {
        return;
    }
    PhoneMessage message;
    message.mutable_start_result()->set_result(*startResult);
    send(Way::kTcp, message);
    events.report("start-answered", {{"result", *startResult}});
}

void PhonePeer::onTcpEnded(const TcpAttempt& attempt, const std::string& reason) {
    tcp.reset();
    if (!tcpConnected && !attempt.patience.passed()) {
        tcpRetry = loop.after(kTcpRetryPeriod, [this, attempt] { openTcp(attempt); });
        return;
    }
    events.report("tcp-closed", {{"reason", reason}});
}

}  // namespace simulator
