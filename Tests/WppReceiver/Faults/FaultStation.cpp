#include "Tests/WppReceiver/Faults/FaultStation.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <stdexcept>

#include "Pattern/QMSingleton.h"
#include "Tests/Support/Deadline.h"
#include "Tests/WppReceiver/Support/FakeReceiverLib.h"

namespace wpp_test {

using namespace wifi_projection_protocol;

namespace {

const std::string kHandled(1, '\1');
constexpr std::uint8_t kDevice = 7;
constexpr std::uint8_t kSppDevice = 2;
const std::string kUuid = "0123456789abcdef0123456789abcdef";

bool isAnswered(FramedPeer& peer, const std::string& frame) {
    return peer.sendBytes(frame) && peer.receiveFrame() == kHandled;
}

}  // namespace

FaultStation::FaultStation() {
    directory.enter();
    FakeReceiverLib::instance().reset();
    controllerListener = std::make_unique<FramedListener>(nameOf(Link::kControlClient));
    bluetoothListener = std::make_unique<FramedListener>(nameOf(Link::kBluetoothClient));
    service = std::make_unique<QmcWirelessProjectionService>();
    proxy = QmcWirelessProjectionBtProxy::getInstance();
    service->openServer();
    proxy->openServer();
}

FaultStation::~FaultStation() {
    service.reset();
    qm_DestroySingletons();
}

std::chrono::milliseconds FaultStation::stop(Link link) {
    const Stopwatch watch;
    switch (link) {
        case Link::kControlServer:
            service->closeServer();
            break;
        case Link::kControlClient:
            service->closeClient();
            break;
        case Link::kBluetoothServer:
            proxy->closeServer();
            break;
        case Link::kBluetoothClient:
            proxy->closeClient();
            break;
    }
    return watch.elapsed();
}

void FaultStation::reopen(Link link) {
    std::filesystem::remove(nameOf(link));
    if (link == Link::kControlServer) {
        service->openServer();
    } else {
        proxy->openServer();
    }
}

FramedPeer FaultStation::connect(Link link) {
    const bool isControl = link == Link::kControlClient;
    auto opened = std::async(std::launch::async,
                             [&] { return isControl ? service->openClient() : proxy->openClient(); });
    FramedPeer peer = (isControl ? controllerListener : bluetoothListener)->accept();
    if (!peer.isConnected() || !opened.get()) {
        throw std::runtime_error("the client does not connect");
    }
    return peer;
}

std::future<bool> FaultStation::begin(const FaultExchange& started) {
    return std::async(std::launch::async, [this, &started] { return exchangeSucceeds(started.message); });
}

bool FaultStation::exchangeSucceeds(const std::string& message) {
    static const std::uint8_t data[] = {0x0A, 0x0B, 0x0C};
    const auto fetchKey = [this] {
        std::string certificate;
        std::string key;
        std::string caCertificate;
        const bool isFetched = service->ReqGetSecureSslKey(certificate, key, caCertificate);
        if (isFetched != (certificate == "CERT" && key == "KEY" && caCertificate == "CA")) {
            throw std::runtime_error("the TLS material is not what the result says");
        }
        return isFetched;
    };
    const auto notified = [](auto&& notify) {
        notify();
        return true;
    };
    const std::map<std::string, std::function<bool()>> calls = {
        {"OnReadyForProjection",
         [&] { return notified([&] { service->OnReadyForProjection(kDevice, "one", "two", "three"); }); }},
        {"OnWifiVersionResponseFailure",
         [&] {
             return notified(
                 [&] { service->OnWifiVersionResponseFailure(kDevice, "one", "two", "three", 3); });
         }},
        {"OnStartProjectionResponse",
         [&] { return notified([&] { service->OnStartProjectionResponse(kDevice, 1); }); }},
        {"CanStartProjection", [&] { return notified([&] { service->CanStartProjection(kDevice); }); }},
        {"OnWifiConnectStatus",
         [&] { return notified([&] { service->OnWifiConnectStatus(kDevice, 0x102, "joined"); }); }},
        {"OnClientConnected", [&] { return notified([&] { service->OnClientConnected(kDevice); }); }},
        {"OnClientLost", [&] { return notified([&] { service->OnClientLost(kDevice); }); }},
        {"ReqGetSecureSslKey", fetchKey},
        {"SendSppData", [&] { return proxy->sendSppData(kSppDevice, kUuid, data, sizeof(data)) == 1; }},
        {"DisconnectSpp", [&] { return proxy->disconnectSpp(kSppDevice, kUuid) == 1; }},
    };
    return calls.at(message)();
}

bool FaultStation::isNextPeerServed(Link link) {
    FramedPeer next = FramedPeer::connectTo(nameOf(link));
    if (link == Link::kBluetoothServer) {
        return isAnswered(next, goldenFrame("RecvSppData"));
    }
    return next.sendBytes(goldenFrame("StartWifiProjectionProtocol")) &&
           isAnswered(next, goldenFrame("SetProjectionPortInfo"));
}

bool FaultStation::isTerminateHandled() {
    FramedPeer next = FramedPeer::connectTo(nameOf(Link::kControlServer));
    if (!isAnswered(next, goldenFrame("Terminate"))) {
        return false;
    }
    service->waitExit();
    return true;
}

}  // namespace wpp_test
