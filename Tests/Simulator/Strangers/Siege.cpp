#include "Tests/Simulator/Strangers/Siege.h"

#include <cstdlib>
#include <functional>
#include <future>
#include <iostream>
#include <utility>

#include "Tests/Support/Deadline.h"
#include "Tests/Support/RunWith.h"

namespace simulator {

namespace {

constexpr const char* kHonest = "phone 1";
constexpr int kHonestDevice = 1;
constexpr Milliseconds kPatience{30000};
constexpr Milliseconds kMargin{100};  // at the limit: between this side's clock and the receiver's
constexpr Milliseconds kAtOnce = kPhoneLimit - kMargin;
constexpr Milliseconds kLateness{25000};     // of an overloaded machine
constexpr Milliseconds kHonestBound{10000};  // some milliseconds, on a machine that has nothing else to do
constexpr Milliseconds kTerminateLimit{10000};

Expectation event(const std::string& from, const std::string& name, const Json& where = Json::object()) {
    return {from, name, where, Json::object(), Milliseconds(0)};
}

Expectation heardOfHonestPhone(int message) {
    return event(Road::kController, "notification", {{"message", message}, {"btDeviceId", kHonestDevice}});
}

const char* textOf(Fate fate) {
    switch (fate) {
        case Fate::kTurnedAway:
            return "turned away";
        case Fate::kTimedOut:
            return "timed out";
        case Fate::kLeft:
            break;
    }
    return "left";
}

/// A machine that is busy with other things may need longer for what takes a moment, but not each time; a
/// receiver that ends a visit only at its limit does so each time.
std::pair<Visit, Milliseconds> visitOf(const Stranger& stranger, const std::string& address) {
    constexpr int kAttempts = 3;
    for (int attempt = 1;; ++attempt) {
        const wpp_test::Stopwatch stopwatch;
        const Visit visit = stranger.come(address);
        const Milliseconds after = stopwatch.elapsed();
        if (stranger.fate != Fate::kTurnedAway || after < kAtOnce || attempt == kAttempts) {
            return {visit, after};
        }
    }
}

}  // namespace

Siege::Siege() {
    ::setenv("TMPDIR", temporary.path().c_str(), 1);
    options.receiver = RECEIVER_PROGRAM;
    options.runWith = wpp_test::runWith();
    options.simulator = SIMULATOR_PROGRAM;
    options.scenario.limit = kPatience;
}

Siege::~Siege() {
    ::unsetenv("TMPDIR");
}

void Siege::SetUp() {
    try {
        startHeadUnit();
        startProtocol();
        pairHonestPhone();
        serveHonestPhone("nobody");  // what is made once for all phones is there from now on
        before = road->settledFigures();
    } catch (const StageFailure& failure) {
        FAIL() << failure.what();
    }
}

void Siege::TearDown() {
    try {
        ProcessFigures after;
        const bool isAsBefore = wpp_test::waitUntil([&] {
            after = road->receiverFigures();
            return after.descriptors <= before.descriptors && after.threads <= before.threads;
        });
        EXPECT_TRUE(isAsBefore) << before.describe() << " -> " << after.describe();
        serveHonestPhone("nobody");
        expectControllerHeardNothing();
        road->order(Road::kController, {{"order", "send"}, {"message", 1}});
        Expectation end = event(Road::kReceiver, "exit");
        end.within = kTerminateLimit;
        EXPECT_EQ(road->await(end).details, (Json{{"status", 0}}));
        road->refuse(event(Road::kReceiver, "log"), "the receiver has logged something");
    } catch (const StageFailure& failure) {
        ADD_FAILURE() << failure.what();
        road->describeProcesses(failure.from, std::cout);
    }
}

void Siege::startHeadUnit() {
    road.emplace(options, output);
    for (const char* const peer : {Road::kController, Road::kBluetooth}) {
        road->launch(peer);
        road->await(event(peer, "listening"));
    }
    road->launch(kHonest);
    road->launch(Road::kReceiver);
    road->await(event(Road::kController, "link-up", {{"socket", "WPP_SOCKET_TO_WPP"}}));
    road->await(event(Road::kController, "link-up", {{"socket", "WPP_SOCKET_FROM_WPP"}}));
    road->await(event(Road::kBluetooth, "link-up", {{"socket", "WPP_SOCKET_FROM_BT"}}));
    road->await(event(Road::kBluetooth, "link-up", {{"socket", "WPP_SOCKET_TO_BT"}}));
}

void Siege::startProtocol() {
    Json start = {{"order", "send"},
                  {"message", 1000},
                  {"sslCertificate", papers.receiver.certificatePem},
                  {"sslPrivateKey", papers.receiver.privateKeyPem},
                  {"sslCaCertificate", papers.authority.caCertificatePem()}};
    start.update(options.scenario.protocol);
    road->order(Road::kController, start);
    Json port = {{"message", 1002}};
    port.update(options.scenario.projectionPort);
    road->command(port);
    Json wifi = {{"message", 1003}};
    wifi.update(options.scenario.wifi);
    road->command(wifi);
}

void Siege::pairHonestPhone() {
    const RoadPhone& phone = road->phones().front();
    road->command({{"message", 1009},
                   {"btDeviceId", kHonestDevice},
                   {"deviceInfo1", phone.name},
                   {"deviceInfo2", phone.clientId}});
    road->order(kHonest, {{"order", "connect-rfcomm"}});
    road->await(event(Road::kBluetooth, "phone-linked", {{"btDeviceId", kHonestDevice}}));
    announceRfcomm(kHonestDevice);
    road->order(kHonest, {{"order", "hello"}, {"link", "rfcomm"}});
    road->await(event(kHonest, "settings", {{"link", "rfcomm"}}));
}

void Siege::serveHonestPhone(const std::string& meanwhile) {
    const wpp_test::Stopwatch stopwatch;
    road->order(kHonest, {{"order", "connect-tcp"},
                          {"bind", road->phones().front().address},
                          {"patience_ms", kPatience.count()},
                          {"certificate", papers.phone.certificatePem},
                          {"privateKey", papers.phone.privateKeyPem},
                          {"caCertificate", papers.authority.caCertificatePem()}});
    road->await(event(kHonest, "tls-done"));
    road->order(kHonest, {{"order", "hello"}, {"link", "tcp"}});
    road->await(event(kHonest, "settings", {{"link", "tcp"}}));
    road->order(kHonest, {{"order", "ready"}});
    road->order(kHonest, {{"order", "may-i-start"}});
    road->await(event(kHonest, "start-answer", {{"answer", 1}}));
    const auto took = stopwatch.elapsed();
    std::cout << "  honest phone served in " << took.count() << " ms; meanwhile: " << meanwhile << std::endl;
    EXPECT_LE(took, kHonestBound) << meanwhile;
    road->order(kHonest, {{"order", "close"}, {"link", "tcp"}});
    for (const int message : {2000, 2005, 2003, 2006}) {
        road->await(heardOfHonestPhone(message));
    }
}

void Siege::letCome(const std::vector<Stranger>& strangers) {
    struct Coming {
        const Stranger& stranger;
        std::future<std::pair<Visit, Milliseconds>> outcome;
    };
    std::vector<Coming> coming;
    const auto judgeAll = [&] {
        for (Coming& visitor : coming) {
            serveHonestPhone(visitor.stranger.name);
        }
        for (Coming& visitor : coming) {
            SCOPED_TRACE(visitor.stranger.name);
            const auto [visit, after] = visitor.outcome.get();
            judge(visitor.stranger, visit, after);
        }
        coming.clear();
    };
    int number = 0;
    for (const Stranger& stranger : strangers) {
        const std::string address = "127.3.0." + std::to_string(++number);
        coming.push_back({stranger, std::async(std::launch::async, visitOf, std::cref(stranger), address)});
        if (stranger.fate != Fate::kTimedOut) {
            judgeAll();
        }
    }
    judgeAll();
    expectControllerHeardNothing();
}

void Siege::judge(const Stranger& stranger, const Visit& visit, Milliseconds after) {
    std::cout << "  " << stranger.name << ": " << textOf(stranger.fate) << " after " << after.count()
              << " ms";
    if (visit.alert) {
        std::cout << ", alert " << *visit.alert;
    }
    std::cout << std::endl;
    if (stranger.fate == Fate::kLeft) {
        return;
    }
    EXPECT_TRUE(visit.endedByReceiver);
    if (stranger.fate == Fate::kTurnedAway) {
        EXPECT_LT(after, kAtOnce);
    } else {
        EXPECT_GE(after, kPhoneLimit - kMargin);
        EXPECT_LE(after, kPhoneLimit + kLateness);
    }
    if (stranger.alert) {
        EXPECT_EQ(visit.alert, stranger.alert);
    }
}

Wire Siege::openRfcomm(std::uint8_t device) {
    Wire wire = Wire::overRfcomm(road->workingDirectory(), device);
    road->await(event(Road::kBluetooth, "phone-linked", {{"btDeviceId", device}}));
    return wire;
}

void Siege::announceRfcomm(std::uint8_t device) {
    road->command({{"message", 1004}, {"btDeviceId", device}});
}

void Siege::withdrawRfcomm(std::uint8_t device) {
    road->command({{"message", 1005}, {"btDeviceId", device}});
}

void Siege::expectRfcommDropped(std::uint8_t device) {
    road->await(event(Road::kBluetooth, "disconnect-spp", {{"btDeviceId", device}, {"delivered", true}}));
}

/// A harmless command has been answered: everything that the receiver had sent before has arrived.
void Siege::expectControllerHeardNothing() {
    road->command({{"message", 1007}, {"btDeviceId", kHonestDevice}});
    EXPECT_NO_THROW(road->refuse(event(Road::kController, "notification"), "of a stranger"));
}

/// Before encryption the alert is the last thing that comes, in plain: a record of seven bytes.
Visit endOf(Wire& wire) {
    constexpr std::size_t kAlertSize = 7;
    constexpr char kAlertRecord = 21;
    wire.awaitEnd(kPatience);
    Visit visit;
    visit.endedByReceiver = wire.hasEnded();
    const std::string& all = wire.received();
    if (all.size() >= kAlertSize && all[all.size() - kAlertSize] == kAlertRecord) {
        visit.alert = static_cast<unsigned char>(all.back());
    }
    return visit;
}

Visit endOf(TlsWire& tls) {
    tls.awaitEnd(kPatience);
    Visit visit;
    visit.endedByReceiver = tls.wire.hasEnded();
    visit.alert = tls.alert();
    return visit;
}

std::function<Visit(const std::string&)> saying(std::string bytes) {
    return [bytes = std::move(bytes)](const std::string& address) {
        Wire wire = Wire::overTcp(address);
        wire.send(bytes);
        return endOf(wire);
    };
}

}  // namespace simulator
