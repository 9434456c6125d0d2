#include "Simulator/private/Peers/ControllerPeer.h"

#include <map>

#include "LibWpp/ControlMessages.h"
#include "Simulator/private/Peers/ControlCommands.h"
#include "Simulator/private/Peers/ControlNotifications.h"
#include "Simulator/private/Peers/MessageBytes.h"

namespace simulator {

namespace {

constexpr const char* kToReceiver = "WPP_SOCKET_TO_WPP";
constexpr const char* kFromReceiver = "WPP_SOCKET_FROM_WPP";
constexpr std::int32_t kReplyCanStart =
    wifi_projection_protocol::ReplyCanStartProjectionSerializer::kMessageId;
constexpr std::int32_t kCanStart = wifi_projection_protocol::CanStartProjectionSerializer::kMessageId;
constexpr std::int32_t kKeyRequest = wifi_projection_protocol::ReqGetSecureSslKeySerializer::kMessageId;
constexpr std::int32_t kWrongKeyAnswer = wifi_projection_protocol::OnReadyForProjectionSerializer::kMessageId;
constexpr std::int64_t kOversizedReply = 16385;  // one byte over what the receiver takes
constexpr std::int64_t kLongestFrame = 1 << 24;
constexpr std::int64_t kLongestDelayMs = 600000;

/// A payload given as hexadecimal text ("bytes") or as a count of zero bytes ("size").
std::string payloadField(const Json& order) {
    std::string payload = bytesOfHex(textField(order, "bytes"));
    payload.resize(static_cast<std::size_t>(
        numberField(order, "size", static_cast<std::int64_t>(payload.size()), 0, kLongestFrame)));
    return payload;
}

}  // namespace

ControllerPeer::ControllerPeer(PollLoop& pollLoop, EventWriter& eventWriter)
    : loop(pollLoop),
      events(eventWriter),
      keyAnswer(buildKeyAnswer(Json::object())),
      link(pollLoop, {kToReceiver, kFromReceiver},
           {[this](std::string_view payload) { onReplied(payload); },
            [this](std::string_view payload) { onReceived(payload); },
            [this](const std::string& socket, bool up) { onChanged(socket, up); }}) {
    events.report("listening", {{"socket", kFromReceiver}});
}

OrderBook::Table ControllerPeer::orders() {
    return {
        {"send", [this](const Json& order) { send(order); }},
        {"send-frame", [this](const Json& order) { sendFrame(order); }},
        {"acknowledge", [this](const Json& order) { setAcknowledgement(order); }},
        {"answer-can-start", [this](const Json& order) { setCanStartAnswer(order); }},
        {"answer-key-request", [this](const Json& order) { setKeyAnswer(order); }},
        {"die", [this](const Json& order) { die(order); }},
        {"end", [this](const Json&) { loop.stop(); }},
    };
}

void ControllerPeer::send(const Json& order) {
    if (!order.contains("message")) {
        throw JsonError("\"message\" is missing");
    }
    sendCommand(numberField<std::int32_t>(order, "message", 0), order);
}

/// "announced" is the length word; without it the frame is a proper one.
void ControllerPeer::sendFrame(const Json& order) {
    const std::string payload = payloadField(order);
    const auto announced =
        numberField<std::uint32_t>(order, "announced", static_cast<std::uint32_t>(payload.size()));
    if (!link.sendBytes(encodeFrame(announced, payload))) {
        throw JsonError("the receiver is not there");
    }
    if (announced == payload.size() && announced > 0) {
        awaitingReply.push_back(messageIdOf(payload));
    }
}

void ControllerPeer::setAcknowledgement(const Json& order) {
    static const std::map<std::string, std::optional<std::string>> kModes{
        {"normal", std::string(1, '\1')},
        {"never", std::nullopt},
        {"empty", std::string()},
        {"oversized", std::string(kOversizedReply, '\1')},
    };
    const auto found = kModes.find(textField(order, "mode", "normal"));
    if (found == kModes.end()) {
        throw JsonError("\"mode\" is none of normal, never, empty, oversized");
    }
    acknowledgement = found->second;
}

void ControllerPeer::setCanStartAnswer(const Json& order) {
    const bool never = boolField(order, "never", false);
    const auto answer = numberField<std::int32_t>(order, "canStart", 1);
    canStartDelay = Milliseconds(numberField(order, "after_ms", 0, 0, kLongestDelayMs));
    canStart = never ? std::nullopt : std::make_optional(answer);
}

void ControllerPeer::setKeyAnswer(const Json& order) {
    const std::string how = textField(order, "how", "material");
    if (how == "material") {
        keyAnswer = buildKeyAnswer(order);
    } else if (how == "wrong-id") {
        keyAnswer = buildCommand(kWrongKeyAnswer, Json::object());
    } else if (how == "never") {
        keyAnswer = std::nullopt;
    } else {
        throw JsonError("\"how\" is none of material, wrong-id, never");
    }
}

/// With "mid_frame" the last thing that the receiver gets is the first half of a command.
void ControllerPeer::die(const Json& order) {
    if (boolField(order, "mid_frame", false)) {
        const std::string frame = encodeFrame(buildCommand(kReplyCanStart, Json::object()));
        link.sendBytes(std::string_view(frame).substr(0, frame.size() / 2));
    }
    events.report("dying");
    loop.stop();
}

void ControllerPeer::sendCommand(std::int32_t messageId, const Json& fields) {
    if (!link.send(buildCommand(messageId, fields))) {
        throw JsonError("the receiver is not there");
    }
    if (isReplied(messageId)) {
        awaitingReply.push_back(messageId);
    }
    Json details = {{"message", messageId}};
    if (fields.contains("btDeviceId")) {
        details["btDeviceId"] = fields["btDeviceId"];
    }
    events.report("sent", details);
}

void ControllerPeer::onReplied(std::string_view payload) {
    Json details = {{"message", -1}, {"bytes", hexOfBytes(payload)}};
    if (!awaitingReply.empty()) {
        details["message"] = awaitingReply.front();
        awaitingReply.pop_front();
    }
    events.report("reply", details);
}

void ControllerPeer::onReceived(std::string_view payload) {
    const Json description = describeNotification(payload);
    events.report("notification", description);
    const auto message = description["message"].get<std::int32_t>();
    if (message == kKeyRequest) {
        answerKeyRequest();
        return;
    }
    acknowledge();
    if (message == kCanStart) {
        answerCanStart(description);
    }
}

void ControllerPeer::onChanged(const std::string& socket, bool up) {
    if (socket == kToReceiver) {
        awaitingReply.clear();
    }
    events.report(up ? "link-up" : "link-down", {{"socket", socket}});
}

void ControllerPeer::acknowledge() {
    if (acknowledgement) {
        link.answer(*acknowledgement);
    }
}

void ControllerPeer::answerCanStart(const Json& question) {
    if (!canStart) {
        return;
    }
    const Json fields = {{"btDeviceId", question["btDeviceId"]}, {"canStart", *canStart}};
    loop.after(canStartDelay, [this, fields] {
        try {
            sendCommand(kReplyCanStart, fields);
        } catch (const JsonError& error) {
            events.report("not-sent", {{"message", kReplyCanStart}, {"reason", error.what()}});
        }
    });
}

void ControllerPeer::answerKeyRequest() {
    if (keyAnswer) {
        link.answer(*keyAnswer);
        events.report("key-answered", {{"message", messageIdOf(*keyAnswer)}});
    }
}

}  // namespace simulator
