#include "Simulator/private/Peers/HeadUnitMessages.h"

#include "common/Common.pb.h"
#include "phone/PhoneProtocol.pb.h"

namespace simulator {

namespace {

using phone_protocol::HeadUnitMessage;

Json headUnitTexts(const std::string& serialised) {
    common::HeadUnitInfo info;
    if (!info.ParseFromString(serialised)) {
        return Json::array();
    }
    return {info.text_1(), info.text_2(), info.text_3(), info.text_4(),
            info.text_5(), info.text_6(), info.text_7(), info.text_8()};
}

Json settingsOf(const phone_protocol::Settings& settings) {
    Json channels = Json::array();
    for (const auto channel : settings.channels()) {
        channels.push_back(channel);
    }
    return {{"wifiInfo1", settings.wifi_info_1()},
            {"wifiInfo2", settings.wifi_info_2()},
            {"wifiInfo3", settings.wifi_info_3()},
            {"wifiInfo4", settings.wifi_info_4()},
            {"host", settings.host()},
            {"port", settings.port()},
            {"channelType", settings.channel_type()},
            {"channelList", channels},
            {"headUnitInfo", headUnitTexts(settings.head_unit_info())}};
}

}  // namespace

HeadUnitEvent describeHeadUnitMessage(const std::string& serialised) {
    HeadUnitMessage message;
    if (!message.ParseFromString(serialised)) {
        return {"unreadable", {{"bytes", hexOfBytes(serialised)}}};
    }
    switch (message.kind_case()) {
        case HeadUnitMessage::kSettings:
            return {"settings", settingsOf(message.settings())};
        case HeadUnitMessage::kStartAnswer:
            return {"start-answer", {{"answer", message.start_answer().answer()}}};
        case HeadUnitMessage::kStart:
            return {"start", {{"reason", message.start().reason()}}};
        case HeadUnitMessage::KIND_NOT_SET:
            break;
    }
    return {"unreadable", {{"bytes", hexOfBytes(serialised)}}};
}

}  // namespace simulator
