#include "Simulator/private/Peers/ControlCommands.h"

#include <algorithm>
#include <array>
#include <vector>

#include "LibWpp/ControlMessages.h"
#include "LibWpp/WppIPCMessageHeader.h"
#include "Simulator/private/Peers/MessageBytes.h"

namespace simulator {

namespace {

using namespace wifi_projection_protocol;  // every entry of the table below is a message class of it

std::uint8_t device(const Json& fields) {
    return numberField<std::uint8_t>(fields, "btDeviceId", 0);
}

std::vector<unsigned int> channelList(const Json& fields) {
    std::vector<unsigned int> channels;
    for (const Json& channel : listField(fields, "channelList")) {
        channels.push_back(numberField<std::uint32_t>(Json{{"channel", channel}}, "channel", 0));
    }
    return channels;
}

common::HeadUnitInfo headUnitInfo(const Json& fields) {
    common::HeadUnitInfo info;
    const auto text = [&list = listField(fields, "headUnitInfo")](std::size_t index) {
        return index < list.size() ? textField(Json{{"text", list[index]}}, "text") : std::string();
    };
    info.set_text_1(text(0));
    info.set_text_2(text(1));
    info.set_text_3(text(2));
    info.set_text_4(text(3));
    info.set_text_5(text(4));
    info.set_text_6(text(5));
    info.set_text_7(text(6));
    info.set_text_8(text(7));
    return info;
}

template <typename Message>
std::string deviceOnly(const Json& fields) {
    Message message(device(fields));
    return payloadOf(message);
}

std::string startProtocol(const Json& fields) {
    const auto channelType = numberField<std::uint32_t>(fields, "channelType", 0);
    StartWifiProjectionProtocolSerializer message(
        static_cast<wifi_discovery::WifiChannelType>(channelType), channelList(fields), headUnitInfo(fields),
        textField(fields, "sslCertificate"), textField(fields, "sslPrivateKey"),
        textField(fields, "sslCaCertificate"));
    return payloadOf(message);
}

std::string setPortInfo(const Json& fields) {
    SetProjectionPortInfoSerializer message(textField(fields, "ipAddress"),
                                            numberField<std::uint16_t>(fields, "port", 0));
    return payloadOf(message);
}

std::string setWifiInfo(const Json& fields) {
    SetWifiInfoSerializer message(textField(fields, "wifiInfo1"), textField(fields, "wifiInfo2"),
                                  textField(fields, "wifiInfo3"),
                                  numberField<std::uint32_t>(fields, "wifiInfo4", 0));
    return payloadOf(message);
}

std::string startProjection(const Json& fields) {
    const auto reason = numberField<std::uint32_t>(fields, "reason", 0);
    StartProjectionSerializer message(device(fields),
                                      static_cast<wifi_discovery::StartRequestReason>(reason));
    return payloadOf(message);
}

std::string replyCanStart(const Json& fields) {
    // The answer is signed for the library that asked; the message carries its 32 bits.
    const auto answer = numberField<std::int32_t>(fields, "canStart", 0);
    ReplyCanStartProjectionSerializer message(device(fields), static_cast<std::uint32_t>(answer));
    return payloadOf(message);
}

std::string addDevice(const Json& fields) {
    AddDeviceInfoSerializer message(device(fields), textField(fields, "deviceInfo1"),
                                    textField(fields, "deviceInfo2"));
    return payloadOf(message);
}

struct Command {
    std::int32_t id;
    std::string (*build)(const Json& fields);
};

constexpr std::array<Command, 10> kCommands{{
    {1000, startProtocol},
    {1002, setPortInfo},
    {1003, setWifiInfo},
    {1004, deviceOnly<RfcommConnectedSerializer>},
    {1005, deviceOnly<RfcommDisconnectedSerializer>},
    {1006, startProjection},
    {1007, deviceOnly<StopProjectionStartSerializer>},
    {1008, replyCanStart},
    {1009, addDevice},
    {1010, deviceOnly<DeleteDeviceInfoSerializer>},
}};

}  // namespace

std::string buildCommand(std::int32_t messageId, const Json& fields) {
    const auto* const found =
        std::find_if(kCommands.begin(), kCommands.end(),
                     [messageId](const Command& command) { return command.id == messageId; });
    if (found != kCommands.end()) {
        return found->build(fields);
    }
    WppIPCMessageHeader message(messageId);
    return payloadOf(message);
}

bool isReplied(std::int32_t messageId) {
    return messageId != StartWifiProjectionProtocolSerializer::kMessageId;
}

std::string buildKeyAnswer(const Json& fields) {
    ResGetSecureSslKeySerializer message(textField(fields, "sslCertificate"),
                                         textField(fields, "sslPrivateKey"),
                                         textField(fields, "sslCaCertificate"));
    return payloadOf(message);
}

}  // namespace simulator
