#include "Tests/WppReceiver/Faults/FaultTable.h"

#include "Tests/LibWpp/GoldenMessages.h"
#include "Tests/Support/FramedPeer.h"

namespace wpp_test {

namespace {

constexpr const char* kKeyAnswer = "ResGetSecureSslKey";
constexpr const char* kKeyRequest = "ReqGetSecureSslKey";
constexpr const char* kStart = "StartWifiProjectionProtocol";

struct LinkMessages {
    Link link;
    std::vector<const char*> requests;
};

const std::vector<LinkMessages>& requestsOfLinks() {
    static const std::vector<LinkMessages> requests = {
        {Link::kControlServer,
         {"Terminate", kStart, "StopWifiProjectionProtocol", "SetProjectionPortInfo", "SetWifiInfo",
          "RfcommConnected", "RfcommDisconnected", "StartProjection", "StopProjectionStart",
          "ReplyCanStartProjection", "AddDeviceInfo", "DeleteDeviceInfo"}},
        {Link::kControlClient,
         {"OnReadyForProjection", "OnWifiVersionResponseFailure", "OnStartProjectionResponse",
          "CanStartProjection", "OnWifiConnectStatus", "OnClientConnected", "OnClientLost", kKeyRequest}},
        {Link::kBluetoothServer, {"RecvSppData"}},
        {Link::kBluetoothClient, {"SendSppData", "DisconnectSpp"}},
    };
    return requests;
}

std::string replyTo(const std::string& message) {
    if (message == kStart) {
        return "";
    }
    return message == kKeyRequest ? goldenFrame(kKeyAnswer) : frameOf(std::string(1, '\1'));
}

std::vector<FaultExchange> makeExchanges() {
    std::vector<FaultExchange> exchanges;
    for (const LinkMessages& link : requestsOfLinks()) {
        for (const std::string message : link.requests) {
            exchanges.push_back({message, link.link, goldenFrame(message), replyTo(message)});
        }
    }
    return exchanges;
}

void addPoints(std::vector<FaultPoint>& points, const FaultExchange& exchange, bool isInReply) {
    const std::size_t size = isInReply ? exchange.reply.size() : exchange.request.size();
    for (std::size_t offset = 0; offset < size; ++offset) {
        for (const Fault fault : kFaults) {
            points.push_back({&exchange, isInReply, offset, fault});
        }
    }
}

}  // namespace

const char* nameOf(Link link) {
    constexpr const char* kNames[] = {"WPP_SOCKET_TO_WPP", "WPP_SOCKET_FROM_WPP", "WPP_SOCKET_FROM_BT",
                                      "WPP_SOCKET_TO_BT"};
    return kNames[static_cast<std::size_t>(link)];
}

const char* nameOf(Fault fault) {
    constexpr const char* kNames[] = {"stall", "close", "reset", "killed"};
    return kNames[static_cast<std::size_t>(fault)];
}

std::string FaultPoint::text() const {
    return exchange->message + (isInReply ? " reply" : "") + " byte " + std::to_string(offset) + " " +
           nameOf(fault);
}

const std::vector<FaultExchange>& faultExchanges() {
    static const std::vector<FaultExchange> exchanges = makeExchanges();
    return exchanges;
}

std::set<std::string> messagesOf(Link link) {
    std::set<std::string> messages;
    for (const FaultExchange& exchange : faultExchanges()) {
        if (exchange.link == link) {
            messages.insert(exchange.message);
            if (exchange.message == kKeyRequest) {
                messages.insert(kKeyAnswer);
            }
        }
    }
    return messages;
}

std::vector<FaultPoint> faultPointsOf(Link link) {
    std::vector<FaultPoint> points;
    for (const FaultExchange& exchange : faultExchanges()) {
        if (exchange.link == link) {
            addPoints(points, exchange, false);
            addPoints(points, exchange, true);
        }
    }
    return points;
}

std::string goldenFrame(const std::string& message) {
    return frameOf(goldenBytes(message, "ordinary"));
}

}  // namespace wpp_test
