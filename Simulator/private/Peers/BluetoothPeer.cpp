#include "Simulator/private/Peers/BluetoothPeer.h"

#include "LibWpp/SppMessages.h"
#include "Simulator/private/Peers/MessageBytes.h"

namespace simulator {

namespace {

using wifi_projection_protocol::DisconnectSppSerializer;
using wifi_projection_protocol::RecvSppDataSerializer;
using wifi_projection_protocol::SendSppDataSerializer;

constexpr const char* kToReceiver = "WPP_SOCKET_FROM_BT";
constexpr const char* kFromReceiver = "WPP_SOCKET_TO_BT";
constexpr const char* kServiceUuid = "4DE17A0052CB11E6BDF40800200C9A66";

std::string replyByte(bool done) {
    return std::string(1, done ? '\1' : '\0');
}

}  // namespace

BluetoothPeer::BluetoothPeer(PollLoop& pollLoop, EventWriter& eventWriter)
    : loop(pollLoop),
      events(eventWriter),
      hub(pollLoop, {[this](std::uint8_t device) {
                         events.report("phone-linked", {{"btDeviceId", device}});
                     },
                     [this](std::uint8_t device, std::string_view bytes) { onPhoneBytes(device, bytes); },
                     [this](std::uint8_t device) {
                         events.report("phone-gone", {{"btDeviceId", device}});
                     }}),
      link(pollLoop, {kToReceiver, kFromReceiver},
           {[this](std::string_view payload) { onReplied(payload); },
            [this](std::string_view payload) { onReceived(payload); },
            [this](const std::string& socket, bool up) {
                events.report(up ? "link-up" : "link-down", {{"socket", socket}});
            }}) {
    events.report("listening", {{"socket", kFromReceiver}});
}

OrderBook::Table BluetoothPeer::orders() {
    return {
        {"send-frame", [this](const Json& order) { sendFrame(order); }},
        {"acknowledge", [this](const Json& order) { setAcknowledgement(order); }},
        {"drop-phone", [this](const Json& order) { dropPhone(order); }},
        {"die",
         [this](const Json&) {
             events.report("dying");
             loop.stop();
         }},
        {"end", [this](const Json&) { loop.stop(); }},
    };
}

/// "announced" is the length word; without it the frame is a proper one.
void BluetoothPeer::sendFrame(const Json& order) {
    const std::string payload = bytesOfHex(textField(order, "bytes"));
    const auto announced =
        numberField<std::uint32_t>(order, "announced", static_cast<std::uint32_t>(payload.size()));
    if (!link.sendBytes(encodeFrame(announced, payload))) {
        throw JsonError("the receiver is not there");
    }
}

void BluetoothPeer::setAcknowledgement(const Json& order) {
    const std::string mode = textField(order, "mode", "normal");
    if (mode != "normal" && mode != "never") {
        throw JsonError("\"mode\" is none of normal, never");
    }
    acknowledging = mode == "normal";
}

void BluetoothPeer::dropPhone(const Json& order) {
    if (!hub.drop(numberField<std::uint8_t>(order, "btDeviceId", 0))) {
        throw JsonError("the device has no link");
    }
}

void BluetoothPeer::onReplied(std::string_view payload) {
    events.report("reply", {{"bytes", hexOfBytes(payload)}});
}

void BluetoothPeer::onReceived(std::string_view payload) {
    bool done = false;
    switch (messageIdOf(payload)) {
        case SendSppDataSerializer::kMessageId:
            done = onSendSppData(payload);
            break;
        case DisconnectSppSerializer::kMessageId:
            done = onDisconnectSpp(payload);
            break;
        default:
            events.report("unknown-message", {{"bytes", hexOfBytes(payload)}});
    }
    if (acknowledging) {
        link.answer(replyByte(done));
    }
}

bool BluetoothPeer::onSendSppData(std::string_view payload) {
    SendSppDataSerializer message;
    decodeInto(message, payload);
    const std::string bytes(message.dataStorage.begin(), message.dataStorage.end());
    const bool done = message.uuid == kServiceUuid && hub.send(message.btDeviceId, bytes);
    events.report("to-phone", {{"btDeviceId", message.btDeviceId},
                               {"uuid", message.uuid},
                               {"size", message.dataLength},
                               {"delivered", done}});
    return done;
}

bool BluetoothPeer::onDisconnectSpp(std::string_view payload) {
    DisconnectSppSerializer message;
    decodeInto(message, payload);
    const bool done = message.uuid == kServiceUuid && hub.drop(message.btDeviceId);
    events.report("disconnect-spp",
                  {{"btDeviceId", message.btDeviceId}, {"uuid", message.uuid}, {"delivered", done}});
    return done;
}

void BluetoothPeer::onPhoneBytes(std::uint8_t device, std::string_view bytes) {
    const void* const data = bytes.data();
    RecvSppDataSerializer message(device, kServiceUuid, static_cast<const std::uint8_t*>(data),
                                  static_cast<std::uint32_t>(bytes.size()));
    const bool done = link.send(payloadOf(message));
    events.report("from-phone", {{"btDeviceId", device}, {"size", bytes.size()}, {"delivered", done}});
}

}  // namespace simulator
