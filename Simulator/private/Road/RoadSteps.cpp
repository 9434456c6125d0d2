#include "Simulator/private/Road/RoadSteps.h"

namespace simulator {

namespace {

constexpr int kStartReason = 1;
constexpr int kConnectPatienceMs = 5000;  // the receiver's server opens a moment after the protocol

/// The settings that a phone has to be told, on either way.
Json expectedSettings(const Road& road, const char* way) {
    const Scenario& scenario = road.scenario();
    Json settings = scenario.wifi;
    settings["link"] = way;
    settings["host"] = scenario.projectionPort["ipAddress"];
    settings["port"] = scenario.projectionPort["port"];
    settings["channelType"] = scenario.protocol["channelType"];
    settings["channelList"] = scenario.protocol["channelList"];
    return settings;
}

}  // namespace

Expectation event(const std::string& from, const std::string& name, const Json& where) {
    return {from, name, where, Json::object(), Milliseconds(0)};
}

Expectation notification(int message, const RoadPhone& phone, const Json& where) {
    Json fields = {{"message", message}, {"btDeviceId", phone.device}};
    fields.update(where);
    return event(Road::kController, "notification", fields);
}

Json withMessage(int message, const Json& fields) {
    Json all = {{"message", message}};
    all.update(fields);
    return all;
}

void commandFor(Road& road, int message, const RoadPhone& phone, const Json& fields) {
    Json all = {{"message", message}, {"btDeviceId", phone.device}};
    all.update(fields);
    road.command(all);
}

Json keyMaterial() {
    return {{"sslCertificate", "@receiver.pem"},
            {"sslPrivateKey", "@receiver.key"},
            {"sslCaCertificate", "@ca.pem"}};
}

void openRfcomm(Road& road, const RoadPhone& phone) {
    road.forget(event(phone.name, "rfcomm-closed"));
    road.order(phone.name, {{"order", "connect-rfcomm"}});
    road.await(event(Road::kBluetooth, "phone-linked", {{"btDeviceId", phone.device}}));
    commandFor(road, kRfcommConnected, phone);
}

void connectRfcomm(Road& road, const RoadPhone& phone) {
    openRfcomm(road, phone);
    road.order(phone.name, {{"order", "hello"}, {"link", "rfcomm"}});
}

void proveSettings(Road& road, const RoadPhone& phone, const char* way) {
    road.prove(event(phone.name, "settings", expectedSettings(road, way)));
}

std::string wordsOf(const Road& road, const RoadPhone& phone) {
    return phone.name + " in round " + std::to_string(road.round());
}

int startResultOf(const Road& road, const RoadPhone& phone) {
    return road.round() * 1000 + phone.device;
}

void connectTcp(Road& road, const RoadPhone& phone) {
    for (const char* const earlier : {"tcp-connecting", "tcp-connected", "tls-done", "tcp-closed"}) {
        road.forget(event(phone.name, earlier));
    }
    road.order(phone.name, {{"order", "connect-tcp"},
                            {"port", 30516},
                            {"bind", phone.address},
                            {"patience_ms", kConnectPatienceMs},
                            {"certificate", "@phone.pem"},
                            {"privateKey", "@phone.key"},
                            {"caCertificate", "@ca.pem"},
                            {"greet", true},
                            {"description", wordsOf(road, phone)}});
}

void secureTcp(Road& road, const RoadPhone& phone) {
    road.prove(event(phone.name, "tls-done"));
    proveSettings(road, phone, "tcp");
}

void proveReady(Road& road, const RoadPhone& phone) {
    road.prove(notification(
        kReady, phone,
        {{"phoneInfo1", phone.clientId}, {"phoneInfo2", phone.name}, {"phoneInfo3", wordsOf(road, phone)}}));
}

void startPhone(Road& road, const RoadPhone& phone) {
    commandFor(road, kStartProjection, phone, {{"reason", kStartReason}});
    road.prove(event(phone.name, "start", {{"reason", kStartReason}}));
}

}  // namespace simulator
