#include "private/Conversation.h"

#include <array>
#include <exception>
#include <utility>
#include <vector>

#include "phone/ArenaMessage.h"

namespace wifi_projection_protocol {

using phone_protocol::ArenaMessage;
using phone_protocol::HeadUnitMessage;
using phone_protocol::PhoneMessage;

/// When a message may come and who handles it. A handler returns false to end the conversation.
struct Conversation::Rule {
    Message::KindCase kind;
    bool tcpOnly;
    bool (Conversation::*handler)(const Message& message);
};

const Conversation::Rule* Conversation::findRule(Message::KindCase kind) {
    static const std::array<Rule, 6> rules{{
        {Message::kHello, false, &Conversation::onHello},
        {Message::kWifiVersionResult, false, &Conversation::onWifiVersionResult},
        {Message::kWifiConnectStatus, false, &Conversation::onWifiConnectStatus},
        {Message::kMayIStart, true, &Conversation::onMayIStart},
        {Message::kReadyForProjection, true, &Conversation::onReadyForProjection},
        {Message::kStartResult, true, &Conversation::onStartResult},
    }};
    for (const Rule& rule : rules) {
        if (rule.kind == kind) {
            return &rule;
        }
    }
    return nullptr;
}

Conversation::Conversation(ConversationServices used, std::string name, TransportType type,
                           std::unique_ptr<TransportInputOutput> connected)
    : services(used), linkName(std::move(name)), linkType(type), transport(std::move(connected)) {
    steps.begin(Step::kHello, services.limits.helloTime);
}

std::future<std::uint32_t> Conversation::startProjection(wifi_discovery::StartRequestReason reason) {
    ArenaMessage<HeadUnitMessage> message;
    message->mutable_start()->set_reason(static_cast<std::uint32_t>(reason));
    const std::string bytes = encode(*message);
    std::future<std::uint32_t> result;
    bool sent = false;
    {
        const std::lock_guard<std::mutex> lock(sending);
        result = pendingStart.begin();
        beginStep(Step::kStartResult, services.limits.startResultTime);
        sent = sendLocked(bytes);
    }
    if (!sent) {
        drop();
    }
    return result;
}

void Conversation::drop() {
    if (dropped.exchange(true)) {
        return;
    }
    if (const Transport closing = currentTransport()) {
        try {
            closing->close();
        } catch (...) {
            services.log.report(LibraryLog::kError, linkName, "the transport failed to close");
        }
    }
    pendingStart.end();
    services.questions.recheck();
}

Supervised::Clock::time_point Conversation::deadline() const {
    return dropped ? kNoDeadline : steps.next();
}

void Conversation::endLate() {
    services.log.report(LibraryLog::kWarning, linkName, "the phone is late");
    drop();
}

void Conversation::run() {
    try {
        converse();
    } catch (const std::exception& error) {
        services.log.report(LibraryLog::kError, linkName, error.what());
    } catch (...) {
        services.log.report(LibraryLog::kError, linkName, "an exception of a foreign kind");
    }
    release();
    reportLoss();
}

void Conversation::abandon() {
    release();
}

void Conversation::converse() {
    const Transport reading = currentTransport();
    std::array<char, kReadSize> bytes{};
    while (!dropped) {
        const int count = reading->read(bytes.data(), static_cast<unsigned>(bytes.size()));
        if (count < 0 || !take(bytes.data(), static_cast<std::size_t>(count))) {
            return;
        }
    }
}

bool Conversation::take(const void* bytes, std::size_t size) {
    std::vector<std::string> payloads;
    const bool whole = decoder.feed(bytes, size, payloads);
    if (!payloads.empty()) {
        steps.end(Step::kMessage);
    }
    for (const std::string& payload : payloads) {
        if (dropped || !handle(payload)) {
            return false;
        }
    }
    if (!whole) {
        return refuse("the phone sent a message of a forbidden size");
    }
    if (decoder.isMidMessage() && !steps.isRunning(Step::kMessage)) {
        beginStep(Step::kMessage, services.limits.messageTime);
    }
    return true;
}

bool Conversation::handle(const std::string& payload) {
    ArenaMessage<Message> message;
    if (!message->ParseFromString(payload)) {
        return refuse("the phone sent bytes that are no message");
    }
    const Rule* rule = findRule(message->kind_case());
    const bool isFirst = clientId.empty();
    const bool isHello = message->kind_case() == Message::kHello;
    if (rule == nullptr || isFirst != isHello || (rule->tcpOnly && linkType != TransportType::kTcp)) {
        return refuse("the phone sent a message out of order");
    }
    return (this->*rule->handler)(*message);
}

bool Conversation::onHello(const Message& message) {
    const phone_protocol::Hello& hello = message.hello();
    steps.end(Step::kHello);
    if (hello.client_id().empty() || hello.client_id().size() > kMaxClientIdSize ||
        hello.phone_name().size() > kMaxTextSize || hello.description().size() > kMaxTextSize) {
        return refuse("the phone sent a text of a forbidden size");
    }
    if (!isWelcome(hello.client_id())) {
        services.log.report(LibraryLog::kWarning, linkName, "an unknown phone is turned away");
        return false;
    }
    clientId = hello.client_id();
    ClientInfo client;
    client.clientId = hello.client_id();
    client.phoneName = hello.phone_name();
    client.phoneInfo.set_description(hello.description());
    return greet(client);
}

// Over RFCOMM the head unit has paired with the phone; over TCP anyone may knock.
bool Conversation::isWelcome(const std::string& id) {
    return linkType == TransportType::kRfcomm || services.registry.isOnRfcomm(id) ||
           services.callback.isClientKnown(id);
}

// The client joins before Settings goes out, since with it the phone may at once connect by another way; a
// Start that comes in between waits, since Settings is the first that a phone hears.
bool Conversation::greet(const ClientInfo& client) {
    ArenaMessage<HeadUnitMessage> message;
    services.settings.fillIn(*message->mutable_settings());
    const std::string settings = encode(*message);
    ClientRegistry::Link replaced;
    bool greeted = false;
    {
        const std::lock_guard<std::mutex> lock(sending);
        greeted = services.registry.join(*this, client, replaced) && sendLocked(settings);
    }
    if (replaced) {
        replaced->drop();
    }
    services.log.report(LibraryLog::kInfo, linkName, greeted ? "a phone is known" : "a phone left early");
    return greeted;
}

bool Conversation::onWifiVersionResult(const Message& message) {
    if (message.wifi_version_result().accepted()) {
        return true;
    }
    const std::optional<ClientInfo> client = services.registry.find(clientId);
    if (client) {
        services.callback.onWifiVersionResponseFailure(*client, message.wifi_version_result().failure());
    }
    return client.has_value();
}

bool Conversation::onWifiConnectStatus(const Message& message) {
    const phone_protocol::WifiConnectStatus& status = message.wifi_connect_status();
    if (status.text().size() > kMaxTextSize) {
        return refuse("the phone sent a text of a forbidden size");
    }
    services.callback.onWifiConnectStatus(clientId, status.status(), status.text());
    return true;
}

bool Conversation::onMayIStart(const Message&) {
    ArenaMessage<HeadUnitMessage> answer;
    {
        const QuestionQueue::Turn turn(services.questions, [this] { return dropped.load(); });
        const std::optional<ClientInfo> client = services.registry.find(clientId);
        if (!turn || !client) {
            return false;
        }
        answer->mutable_start_answer()->set_answer(services.callback.canStartProjection(*client));
    }
    const std::string bytes = encode(*answer);
    const std::lock_guard<std::mutex> lock(sending);
    return sendLocked(bytes);
}

bool Conversation::onReadyForProjection(const Message&) {
    const std::optional<ClientInfo> client = services.registry.find(clientId);
    if (client) {
        services.callback.onReadyForProjection(*client);
    }
    return client.has_value();
}

bool Conversation::onStartResult(const Message& message) {
    // The clock stops ahead of the count, so that a Start that comes in between starts it again one way or
    // the other.
    steps.end(Step::kStartResult);
    const std::optional<unsigned> left = pendingStart.answer(message.start_result().result());
    if (!left) {
        return refuse("the phone sent a result that was not asked for");
    }
    if (*left > 0) {
        beginStep(Step::kStartResult, services.limits.startResultTime);
    }
    return true;
}

// @return the message as it goes out; empty when it is too large.
std::string Conversation::encode(const HeadUnitMessage& message) {
    std::string bytes = phone_protocol::encodeMessage(message);
    if (bytes.empty()) {
        services.log.report(LibraryLog::kError, linkName, "a message is too large to be sent");
    }
    return bytes;
}

bool Conversation::sendLocked(const std::string& bytes) {
    const Transport writing = currentTransport();
    return !bytes.empty() && writing && !dropped &&
           writing->write(bytes.data(), static_cast<unsigned>(bytes.size())) > 0;
}

void Conversation::beginStep(Step step, std::chrono::milliseconds limit) {
    steps.begin(step, limit);
    services.supervisor.recheck();
}

bool Conversation::refuse(const char* reason) {
    services.log.report(LibraryLog::kWarning, linkName, reason);
    return false;
}

void Conversation::release() {
    drop();
    services.registry.remove(*this);
    Transport released;
    const std::lock_guard<std::mutex> lock(transportMutex);
    released.swap(transport);
}

void Conversation::reportLoss() {
    const std::optional<ClientInfo> client = services.registry.takeLoss(*this);
    if (!client) {
        return;
    }
    services.log.report(LibraryLog::kInfo, linkName, "the phone is lost");
    try {
        services.callback.onClientLost(*client);
    } catch (const std::exception& error) {
        services.log.report(LibraryLog::kError, linkName, error.what());
    } catch (...) {
        services.log.report(LibraryLog::kError, linkName, "an exception of a foreign kind");
    }
    services.registry.lossReported(client->clientId);
}

Conversation::Transport Conversation::currentTransport() {
    const std::lock_guard<std::mutex> lock(transportMutex);
    return transport;
}

}  // namespace wifi_projection_protocol
