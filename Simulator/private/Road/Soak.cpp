#include "Simulator/private/Road/Soak.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "Simulator/private/Road/RoadStages.h"
#include "Simulator/private/Road/RoadSteps.h"

namespace simulator {

namespace {

constexpr int kGuests = 8;
constexpr int kTcpStrangers = 6;
constexpr int kRfcommStrangers = 1;
constexpr int kStopProtocol = 1001;
constexpr std::size_t kRareTurns = 100;        // one turn in so many is a stop of the protocol
constexpr Milliseconds kStrangerLimit{20000};  // the receiver's own is 5 s; an overloaded machine is late
constexpr int kConnectPatienceMs = 5000;
constexpr std::size_t kReference = 1;

/// What a stranger does over TCP: how it connects, and what it says inside TLS, if it gets there.
struct Misdeed {
    const char* manner;
    const char* certificate;  ///< name of its files; empty for none
    const char* bytes;        ///< hexadecimal; empty for nothing
};

constexpr std::array<Misdeed, 12> kMisdeeds{{
    {"plain-text", "", ""},
    {"silent", "", ""},
    {"half-hello", "", ""},
    {"tls", "foreign-phone", ""},
    {"tls", "", ""},
    {"tls", "phone", "ffffffffdeadbeef"},              // a length of 4 GB
    {"tls", "phone", "00010001"},                      // one byte too long
    {"tls", "phone", "00000000"},                      // empty
    {"tls", "phone", "0000000400000000"},              // no message
    {"tls", "phone", "000000022200"},                  // a question ahead of the greeting
    {"tls", "phone", "0000000a0a080a066e6f626f6479"},  // somebody whom nobody knows
    {"tls", "phone", "0000ffff00"},                    // a message that never ends
}};

constexpr std::array<const char*, 4> kRfcommMisdeeds{
    {"ffffffffdeadbeef", "00000000", "000000022200", "00010001"}};

}  // namespace

Scenario Soak::scenario() {
    Scenario scenario = Scenario::ordinary();
    scenario.phones = kGuests + kTcpStrangers + kRfcommStrangers;
    scenario.limit = Milliseconds(60000);
    return scenario;
}

Soak::Soak(const RoadOptions& roadOptions, const SoakOptions& soakOptions, std::ostream& output)
    : options(soakOptions),
      out(output),
      road(roadOptions, output),
      began(monotonicSeconds()),
      random(soakOptions.seed) {
    const std::vector<RoadPhone>& phones = road.phones();
    for (std::size_t i = 0; i < kGuests; ++i) {
        guests.push_back({phones[i]});
    }
    for (std::size_t i = kGuests; i < kGuests + kTcpStrangers; ++i) {
        strangers.push_back({phones[i]});
    }
}

int Soak::run() {
    const Deadline deadline(options.time);
    try {
        begin();
        while (!deadline.passed()) {
            const Deadline next(std::min(options.reportEvery, deadline.remaining()));
            while (!next.passed()) {
                cycle();
            }
            report();
        }
        end();
    } catch (const StageFailure& failure) {
        ++errors;
        out << "soak: lost: " << failure.what() << std::endl;
        road.describeProcesses(failure.from, out);
    }
    return printVerdict();
}

void Soak::begin() {
    for (const char* const stage : {"process up", "protocol started", "settings"}) {
        findRoadStage(stage)->take(road);
    }
    road.order(Road::kController, {{"order", "answer-can-start"}, {"canStart", 1}});
}

/// Who is not here comes; who is here does something or goes.
void Soak::cycle() {
    ++cycles;
    sendStrangers();
    if (choose(kRareTurns) == 0) {
        restartProtocol();
        return;
    }
    Guest& guest = guests[choose(guests.size())];
    if (!guest.isHere) {
        arrive(guest);
        return;
    }
    switch (choose(5)) {
        case 0:
            ask(guest);
            break;
        case 1:
            start(guest);
            break;
        case 2:
            stopStart(guest);
            break;
        default:
            leave(guest);
    }
}

void Soak::end() {
    findRoadStage("terminate")->take(road);
}

void Soak::arrive(Guest& guest) {
    const RoadPhone& phone = guest.phone;
    commandFor(road, kAddDevice, phone, {{"deviceInfo1", phone.name}, {"deviceInfo2", phone.clientId}});
    connectRfcomm(road, phone);
    proveSettings(road, phone, "rfcomm");
    road.order(phone.name,
               {{"order", "wifi-status"}, {"link", "rfcomm"}, {"status", 0}, {"text", wordsOf(road, phone)}});
    road.prove(notification(kWifiStatus, phone, {{"status", 0}, {"text", wordsOf(road, phone)}}));
    connectTcp(road, phone);
    secureTcp(road, phone);
    road.order(phone.name, {{"order", "ready"}});
    proveReady(road, phone);
    road.prove(notification(kConnected, phone));
    guest.isHere = true;
    ++served;
}

void Soak::leave(Guest& guest) {
    switch (choose(4)) {
        case 0:
            beKilled(guest);
            break;
        case 1:
            beDeleted(guest);
            break;
        case 2:
            loseRfcommFirst(guest);
            break;
        default:
            leaveInGoodOrder(guest);
    }
    guest.isHere = false;
}

void Soak::leaveInGoodOrder(Guest& guest) {
    const RoadPhone& phone = guest.phone;
    road.order(phone.name, {{"order", "close"}, {"link", "tcp"}});
    road.prove(notification(kLost, phone));
    road.order(phone.name, {{"order", "close"}, {"link", "rfcomm"}});
    road.await(event(Road::kBluetooth, "phone-gone", {{"btDeviceId", phone.device}}));
    commandFor(road, kRfcommDisconnected, phone);
    commandFor(road, kDeleteDevice, phone);
}

void Soak::beKilled(Guest& guest) {
    const RoadPhone& phone = guest.phone;
    road.order("road", {{"order", "restart"}, {"peer", phone.name}});
    road.prove(notification(kLost, phone));
    road.await(event(Road::kBluetooth, "phone-gone", {{"btDeviceId", phone.device}}));
    commandFor(road, kRfcommDisconnected, phone);
    commandFor(road, kDeleteDevice, phone);
    ++killed;
}

/// Whether its loss is still told is open: the device may be gone by then. If it is, the controller's word of it may be
/// read after the phone's of its links, or be taken for a later loss, which is then left over.
void Soak::beDeleted(Guest& guest) {
    const RoadPhone& phone = guest.phone;
    commandFor(road, kDeleteDevice, phone);
    road.await(event(phone.name, "tcp-closed"));
    commandFor(road, kRfcommDisconnected, phone);
    road.await(event(phone.name, "rfcomm-closed"));
    ++guest.openLosses;
}

void Soak::loseRfcommFirst(Guest& guest) {
    const RoadPhone& phone = guest.phone;
    commandFor(road, kRfcommDisconnected, phone);
    road.await(event(phone.name, "rfcomm-closed"));
    road.order(phone.name, {{"order", "close"}, {"link", "tcp"}});
    road.prove(notification(kLost, phone));
    commandFor(road, kDeleteDevice, phone);
}

void Soak::ask(Guest& guest) {
    road.order(guest.phone.name, {{"order", "may-i-start"}});
    road.prove(notification(kMayItStart, guest.phone));
    road.prove(event(guest.phone.name, "start-answer", {{"answer", 1}}));
}

void Soak::start(Guest& guest) {
    const int result = startResultOf(road, guest.phone);
    road.order(guest.phone.name, {{"order", "answer-start"}, {"result", result}});
    startPhone(road, guest.phone);
    road.prove(notification(kStartResponse, guest.phone, {{"result", result}}));
    ++starts;
}

/// A start that is stopped takes the phone's links with it.
void Soak::stopStart(Guest& guest) {
    const RoadPhone& phone = guest.phone;
    road.order(phone.name, {{"order", "answer-start"}, {"never", true}});
    startPhone(road, phone);
    commandFor(road, kStopStart, phone);
    road.prove(notification(kStartResponse, phone, {{"result", 0}}));
    road.await(event(phone.name, "rfcomm-closed"));
    road.await(event(phone.name, "tcp-closed"));
    road.prove(notification(kLost, phone));
    commandFor(road, kDeleteDevice, phone);
    guest.isHere = false;
    ++starts;
}

void Soak::restartProtocol() {
    awaitStrangers();
    road.command({{"message", kStopProtocol}});
    for (Guest& guest : guests) {
        if (guest.isHere) {
            road.await(event(guest.phone.name, "rfcomm-closed"));
            road.await(event(guest.phone.name, "tcp-closed"));
            guest.isHere = false;
        }
    }
    findRoadStage("protocol started")->take(road);
    findRoadStage("settings")->take(road);
    ++restarts;
}

void Soak::sendStrangers() {
    lookAfterStrangers();
    for (Stranger& stranger : strangers) {
        if (!stranger.isHere) {
            comeOverTcp(stranger);
            break;  // one in each cycle
        }
    }
    if (choose(4) == 0) {
        comeOverRfcomm(road.phones().back());
    }
}

void Soak::comeOverTcp(Stranger& stranger) {
    const Misdeed& misdeed = kMisdeeds[choose(kMisdeeds.size())];
    const RoadPhone& phone = stranger.phone;
    const std::string files = misdeed.certificate;
    Json order = {{"order", "connect-tcp"},
                  {"manner", misdeed.manner},
                  {"bind", phone.address},
                  {"patience_ms", kConnectPatienceMs},
                  {"caCertificate", "@ca.pem"}};
    if (!files.empty()) {
        order.update({{"certificate", "@" + files + ".pem"}, {"privateKey", "@" + files + ".key"}});
    }
    road.forget(event(phone.name, "tls-done"));
    road.order(phone.name, order);
    if (*misdeed.bytes != '\0') {
        road.await(event(phone.name, "tls-done"));
        road.order(phone.name, {{"order", "send-bytes"}, {"link", "tcp"}, {"bytes", misdeed.bytes}});
    }
    stranger.isHere = true;
    stranger.limit = Deadline(kStrangerLimit);
}

void Soak::comeOverRfcomm(const RoadPhone& phone) {
    openRfcomm(road, phone);
    const char* const bytes = kRfcommMisdeeds[choose(kRfcommMisdeeds.size())];
    road.order(phone.name, {{"order", "send-bytes"}, {"link", "rfcomm"}, {"bytes", bytes}});
    road.await(
        event(Road::kBluetooth, "disconnect-spp", {{"btDeviceId", phone.device}, {"delivered", true}}));
    road.await(event(phone.name, "rfcomm-closed"));
    ++turnedAway;
}

void Soak::lookAfterStrangers() {
    for (Stranger& stranger : strangers) {
        if (stranger.isHere && road.look(event(stranger.phone.name, "tcp-closed"))) {
            stranger.isHere = false;
            ++turnedAway;
        } else if (stranger.isHere && stranger.limit.passed()) {
            throw StageFailure(stranger.phone.name + " has not been turned away", stranger.phone.name);
        }
    }
}

void Soak::awaitStrangers() {
    for (Stranger& stranger : strangers) {
        if (stranger.isHere) {
            road.await(event(stranger.phone.name, "tcp-closed"));
            stranger.isHere = false;
            ++turnedAway;
        }
    }
}

/// The figures are taken when nobody is here, or they would tell who is. Whatever the controller has been told
/// was due, and the receiver has logged nothing but the starts that were stopped.
void Soak::report() {
    awaitStrangers();
    for (Guest& guest : guests) {
        if (guest.isHere) {
            leaveInGoodOrder(guest);
            guest.isHere = false;
        }
    }
    figures.push_back(road.settledFigures());
    char minutes[32];
    std::snprintf(minutes, sizeof(minutes), "[%7.1f s] ", monotonicSeconds() - began);
    out << minutes << cycles << " cycles, " << served << " phones served, " << killed << " killed, " << starts
        << " starts, " << turnedAway << " strangers turned away, " << restarts
        << " restarts of the protocol, " << errors << " errors; receiver " << figures.back().describe()
        << std::endl;
    forgetOpenLosses();
    if (const auto told = road.look(event(Road::kController, "notification"))) {
        throw StageFailure("the controller was told more than there was to tell: " + told->details.dump(),
                           Road::kController);
    }
    Expectation complaint = event(Road::kReceiver, "log");
    complaint.contains = {{"line", "[error]"}};
    Expectation stopped = complaint;
    stopped.contains = {{"line", "StartProjection timeout."}};
    road.forget(stopped);
    road.refuse(complaint, "the receiver has logged an error");
    road.takeProof();
    road.beginRound(road.round() + 1);
}

void Soak::forgetOpenLosses() {
    for (Guest& guest : guests) {
        for (; guest.openLosses > 0; --guest.openLosses) {
            road.look(notification(kLost, guest.phone));
        }
    }
}

int Soak::printVerdict() {
    const bool hasGrown = figures.size() > kReference + 1 && figures.back().exceed(figures[kReference]);
    if (!figures.empty()) {
        const ProcessFigures& before = figures[std::min(kReference, figures.size() - 1)];
        out << "soak: receiver " << before.describe() << " -> " << figures.back().describe() << std::endl;
    }
    out << "soak: "
        << (errors > 0 ? "something was lost"
            : hasGrown ? "the receiver has grown"
                       : "passed")
        << ", seed " << options.seed << std::endl;
    return errors > 0 || hasGrown ? 1 : 0;
}

std::size_t Soak::choose(std::size_t count) {
    return std::uniform_int_distribution<std::size_t>(0, count - 1)(random);
}

}  // namespace simulator
