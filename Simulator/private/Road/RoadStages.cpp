#include "Simulator/private/Road/RoadStages.h"

#include <algorithm>
#include <array>
#include <string>

#include "Simulator/private/Road/RoadSteps.h"

namespace simulator {

namespace {

constexpr int kCanStartAnswer = 1;  // what the controller answers
constexpr int kWifiJoined = 0;
constexpr std::size_t kPhonesAtATime = 8;      // the receiver's server has a queue of ten
constexpr Milliseconds kTerminateLimit{5000};  // ordinarily about 100 ms; a busy machine stalls any process

// The stages, in the order of the road.

void processUp(Road& road) {
    for (const char* const peer : {Road::kController, Road::kBluetooth}) {
        road.launch(peer);
        road.await(event(peer, "listening"));
    }
    for (const RoadPhone& phone : road.phones()) {
        road.launch(phone.name);
    }
    road.launch(Road::kReceiver);
    for (const char* const socket : {"WPP_SOCKET_TO_WPP", "WPP_SOCKET_FROM_WPP"}) {
        road.prove(event(Road::kController, "link-up", {{"socket", socket}}));
    }
    for (const char* const socket : {"WPP_SOCKET_FROM_BT", "WPP_SOCKET_TO_BT"}) {
        road.prove(event(Road::kBluetooth, "link-up", {{"socket", socket}}));
    }
}

/// The start itself is never answered; a stop with no start pending is harmless, and is answered with 1 only
/// once the protocol runs.
void protocolStarted(Road& road) {
    Json start = withMessage(kStart, road.scenario().protocol);
    start["order"] = "send";
    if (road.scenario().tls == TlsSource::kConfigured) {
        start.update(keyMaterial());
    } else {
        Json answer = {{"order", "answer-key-request"}, {"how", "material"}};
        answer.update(keyMaterial());
        road.order(Road::kController, answer);
    }
    road.order(Road::kController, start);
    road.prove(event(Road::kController, "sent", {{"message", kStart}}));
    commandFor(road, kStopStart, road.phones().front());
}

void settings(Road& road) {
    road.command(withMessage(kSetPort, road.scenario().projectionPort));
    road.command(withMessage(kSetWifi, road.scenario().wifi));
}

void device(Road& road) {
    for (const RoadPhone& phone : road.phones()) {
        commandFor(road, kAddDevice, phone, {{"deviceInfo1", phone.name}, {"deviceInfo2", phone.clientId}});
    }
}

void rfcommConnected(Road& road) {
    for (const RoadPhone& phone : road.phones()) {
        connectRfcomm(road, phone);
    }
    for (const RoadPhone& phone : road.phones()) {
        proveSettings(road, phone, "rfcomm");
    }
}

void wifiStatus(Road& road) {
    for (const RoadPhone& phone : road.phones()) {
        road.order(phone.name, {{"order", "wifi-version"}, {"link", "rfcomm"}, {"accepted", true}});
        road.order(phone.name, {{"order", "wifi-status"},
                                {"link", "rfcomm"},
                                {"status", kWifiJoined},
                                {"text", wordsOf(road, phone)}});
    }
    for (const RoadPhone& phone : road.phones()) {
        road.prove(
            notification(kWifiStatus, phone, {{"status", kWifiJoined}, {"text", wordsOf(road, phone)}}));
    }
}

/// What counts is when the phone began to connect: it may hear of its success later than the receiver's
/// question for TLS material goes out.
void tcpConnected(Road& road) {
    const std::vector<RoadPhone>& phones = road.phones();
    for (std::size_t begin = 0; begin < phones.size(); begin += kPhonesAtATime) {
        const std::size_t end = std::min(begin + kPhonesAtATime, phones.size());
        for (std::size_t i = begin; i < end; ++i) {
            connectTcp(road, phones[i]);
        }
        for (std::size_t i = begin; i < end; ++i) {
            road.prove(event(phones[i].name, "tcp-connecting"));
            road.await(event(phones[i].name, "tcp-connected"));
        }
    }
}

void keyFetched(Road& road) {
    road.prove(event(Road::kController, "notification", {{"message", kKeyRequest}}));
    road.prove(event(Road::kController, "key-answered", {{"message", kKeyAnswer}}));
}

void tcpAccepted(Road& road) {
    for (const RoadPhone& phone : road.phones()) {
        secureTcp(road, phone);
    }
    road.refuse(event(Road::kController, "notification", {{"message", kKeyRequest}}),
                "the receiver asked for TLS material that it has");
}

void mayItStart(Road& road) {
    road.order(Road::kController, {{"order", "answer-can-start"}, {"canStart", kCanStartAnswer}});
    for (const RoadPhone& phone : road.phones()) {
        road.order(phone.name, {{"order", "may-i-start"}});
    }
    for (const RoadPhone& phone : road.phones()) {
        road.prove(notification(kMayItStart, phone));
        road.prove(
            event(Road::kController, "sent", {{"message", kReplyCanStart}, {"btDeviceId", phone.device}}));
        road.prove(event(phone.name, "start-answer", {{"answer", kCanStartAnswer}}));
    }
}

void ready(Road& road) {
    for (const RoadPhone& phone : road.phones()) {
        road.order(phone.name, {{"order", "ready"}});
    }
    for (const RoadPhone& phone : road.phones()) {
        proveReady(road, phone);
    }
}

void connected(Road& road) {
    for (const RoadPhone& phone : road.phones()) {
        road.prove(notification(kConnected, phone));
    }
}

/// One phone after the other: a second start would end the first.
void start(Road& road) {
    for (const RoadPhone& phone : road.phones()) {
        road.order(phone.name, {{"order", "answer-start"}, {"result", startResultOf(road, phone)}});
        startPhone(road, phone);
        road.prove(notification(kStartResponse, phone, {{"result", startResultOf(road, phone)}}));
    }
}

void startStopped(Road& road) {
    for (const RoadPhone& phone : road.phones()) {
        road.order(phone.name, {{"order", "answer-start"}, {"never", true}});
        startPhone(road, phone);
        commandFor(road, kStopStart, phone);
        road.prove(notification(kStartResponse, phone, {{"result", 0}}));
        road.prove(
            event(Road::kBluetooth, "disconnect-spp", {{"btDeviceId", phone.device}, {"delivered", true}}));
        road.prove(event(phone.name, "rfcomm-closed"));
        road.prove(event(phone.name, "tcp-closed"));
        road.prove(notification(kLost, phone));
    }
}

void startAgain(Road& road) {
    for (const RoadPhone& phone : road.phones()) {
        road.order(phone.name, {{"order", "answer-start"}, {"result", startResultOf(road, phone)}});
        connectRfcomm(road, phone);
        proveSettings(road, phone, "rfcomm");
        connectTcp(road, phone);
        secureTcp(road, phone);
        road.order(phone.name, {{"order", "ready"}});
        proveReady(road, phone);
        road.prove(notification(kConnected, phone));
        startPhone(road, phone);
        road.prove(notification(kStartResponse, phone, {{"result", startResultOf(road, phone)}}));
        road.refuse(event(Road::kBluetooth, "disconnect-spp", {{"btDeviceId", phone.device}}),
                    "the stopped start dropped the RFCOMM link more than once");
    }
}

void loss(Road& road) {
    for (const RoadPhone& phone : road.phones()) {
        road.refuse(notification(kLost, phone), "the phone was lost before it left");
        road.order(phone.name, {{"order", "close"}, {"link", "tcp"}});
        road.order(phone.name, {{"order", "close"}, {"link", "rfcomm"}});
        road.await(event(Road::kBluetooth, "phone-gone", {{"btDeviceId", phone.device}}));
        commandFor(road, kRfcommDisconnected, phone);
    }
    for (const RoadPhone& phone : road.phones()) {
        road.prove(notification(kLost, phone));
        commandFor(road, kDeleteDevice, phone);
    }
}

void terminate(Road& road) {
    road.order(Road::kController, {{"order", "send"}, {"message", kTerminate}});
    Expectation end = event(Road::kReceiver, "exit");
    end.within = kTerminateLimit;
    const PeerEvent exit = road.prove(end);
    if (exit.details != Json{{"status", 0}}) {
        throw StageFailure("the receiver ended with " + exit.details.dump(), Road::kReceiver);
    }
}

constexpr std::array<RoadStage, 17> kStages{{
    {"process up", "", false, true, processUp},
    {"protocol started", "1000", false, true, protocolStarted},
    {"settings", "1002, 1003", false, true, settings},
    {"device", "1009", false, false, device},
    {"RFCOMM connected", "1004", false, false, rfcommConnected},
    {"Wi-Fi status", "2004", false, false, wifiStatus},
    {"TCP connected", "", false, false, tcpConnected},
    {"key fetched", "2007, 1011", true, true, keyFetched},
    {"TCP accepted", "", false, false, tcpAccepted},
    {"may it start", "2003, 1008", false, false, mayItStart},
    {"ready", "2000", false, false, ready},
    {"connected", "2005", false, false, connected},
    {"start", "1006, 2002", false, false, start},
    {"start stopped", "1006, 1007, 2002", false, false, startStopped},
    {"start again", "1006, 2002", false, false, startAgain},
    {"loss", "2006", false, false, loss},
    {"terminate", "1", false, true, terminate},
}};

}  // namespace

const RoadStage* findRoadStage(const std::string& name) {
    const auto* const found = std::find_if(kStages.begin(), kStages.end(),
                                           [&name](const RoadStage& stage) { return name == stage.name; });
    return found == kStages.end() ? nullptr : found;
}

std::vector<std::string> wholeRoad(TlsSource tls) {
    std::vector<std::string> names;
    for (const RoadStage& stage : kStages) {
        if (!stage.onlyRequested || tls == TlsSource::kRequested) {
            names.emplace_back(stage.name);
        }
    }
    return names;
}

}  // namespace simulator
