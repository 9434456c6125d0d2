#include "Simulator/private/Peers/ControlNotifications.h"

#include <algorithm>
#include <array>

#include "LibWpp/ControlMessages.h"
#include "Simulator/private/Peers/MessageBytes.h"

namespace simulator {

namespace {

using namespace wifi_projection_protocol;  // every entry of the table below is a message class of it

Json fieldsOf(const OnReadyForProjectionSerializer& message) {
    return {{"btDeviceId", message.btDeviceId},
            {"phoneInfo1", message.phoneInfo1},
            {"phoneInfo2", message.phoneInfo2},
            {"phoneInfo3", message.phoneInfo3}};
}

Json fieldsOf(const OnWifiVersionResponseFailureSerializer& message) {
    return {{"btDeviceId", message.btDeviceId},
            {"phoneInfo1", message.phoneInfo1},
            {"phoneInfo2", message.phoneInfo2},
            {"phoneInfo3", message.phoneInfo3},
            {"value", message.value}};
}

Json fieldsOf(const OnStartProjectionResponseSerializer& message) {
    return {{"btDeviceId", message.btDeviceId}, {"result", message.result}};
}

Json fieldsOf(const OnWifiConnectStatusSerializer& message) {
    return {{"btDeviceId", message.btDeviceId}, {"status", message.status}, {"text", message.text}};
}

Json fieldsOf(const ReqGetSecureSslKeySerializer&) {
    return Json::object();
}

/// The messages whose only field is the device.
template <typename Message>
Json fieldsOf(const Message& message) {
    return {{"btDeviceId", message.btDeviceId}};
}

template <typename Message>
Json describe(std::string_view payload) {
    Message message;
    decodeInto(message, payload);
    return fieldsOf(message);
}

struct Notification {
    std::int32_t id;
    const char* name;
    Json (*describe)(std::string_view payload);
};

constexpr std::array<Notification, 8> kNotifications{{
    {2000, "OnReadyForProjection", describe<OnReadyForProjectionSerializer>},
    {2001, "OnWifiVersionResponseFailure", describe<OnWifiVersionResponseFailureSerializer>},
    {2002, "OnStartProjectionResponse", describe<OnStartProjectionResponseSerializer>},
    {2003, "CanStartProjection", describe<CanStartProjectionSerializer>},
    {2004, "OnWifiConnectStatus", describe<OnWifiConnectStatusSerializer>},
    {2005, "OnClientConnected", describe<OnClientConnectedSerializer>},
    {2006, "OnClientLost", describe<OnClientLostSerializer>},
    {2007, "ReqGetSecureSslKey", describe<ReqGetSecureSslKeySerializer>},
}};

}  // namespace

Json describeNotification(std::string_view payload) {
    const std::int32_t id = messageIdOf(payload);
    const auto* const found = std::find_if(kNotifications.begin(), kNotifications.end(),
                                           [id](const Notification& entry) { return entry.id == id; });
    if (found == kNotifications.end()) {
        return {{"message", id}, {"name", "unknown"}, {"bytes", hexOfBytes(payload)}};
    }
    Json description = {{"message", id}, {"name", found->name}};
    description.update(found->describe(payload));
    return description;
}

}  // namespace simulator
