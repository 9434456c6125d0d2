#include <sys/socket.h>
#include <unistd.h>

#include <future>
#include <mutex>
#include <optional>

#include "Core/QmcWifiProjectionProtocol.h"
#include "Core/RfcommTransportInputOutput.h"
#include "Core/WifiProjectionProtocolTcpServer.h"
#include "LibWpp/ControlMessages.h"
#include "LibWpp/SppMessages.h"
#include "LibWpp/WppLocalSocketClientStream.h"
#include "LibWpp/WppLocalSocketServerStream.h"
#include "Pattern/QMSingleton.h"
#include "Proxy/QmcWirelessProjectionBtProxy.h"
#include "Proxy/QmcWirelessProjectionService.h"
#include "Tests/Torture/AcceptedOutcomes.h"
#include "Tests/Torture/CallScene.h"
#include "Tests/Torture/Scenarios.h"
#include "Tests/Torture/StreamScene.h"
#include "Tests/WppReceiver/Support/FakeReceiverLib.h"
#include "Tests/WppReceiver/Support/LoopbackClient.h"

namespace wpp_torture {

namespace {

using namespace wifi_projection_protocol;
using std::chrono::milliseconds;

constexpr milliseconds kTorturedLimit{250};
constexpr milliseconds kSoon{1000};
constexpr milliseconds kLimit{kPatienceMs};
constexpr std::uint8_t kDevice = 2;
constexpr const char* kUuid = "4DE17A0052CB11E6BDF40800200C9A66";
const std::string kHandled(1, '\1');

std::string bytesOf(WppIPCMessageCore&& message) {
    message.serialize();
    return {message.archive.getBuffer(), message.archive.getBuffer() + message.archive.getSize()};
}

/// A command as its sender has it answered. @return whether it was.
bool isHandled(const char* socket, const std::string& message, milliseconds limit) {
    const Unharmed unharmed;
    wpp_test::FramedPeer peer = wpp_test::FramedPeer::connectTo(socket, limit);
    return peer.isConnected() && peer.sendFrame(message) && peer.receiveFrame(limit) == kHandled;
}

/// The peers that the receiver's clients connect to.
std::unique_ptr<wpp_test::AnsweringPeer> answeringPeer(const char* socket) {
    return harmless([socket] { return std::make_unique<wpp_test::AnsweringPeer>(socket); });
}

template <class Object>
void destroyHarmless(std::unique_ptr<Object>& object) {
    const Unharmed unharmed;
    object.reset();
}

std::string phoneBytes() {
    static const std::uint8_t bytes[] = {1, 2, 3};
    return bytesOf(RecvSppDataSerializer(kDevice, kUuid, bytes, sizeof(bytes)));
}

class BluetoothScene {
public:
    BluetoothScene() : peer(answeringPeer("WPP_SOCKET_TO_BT")) {}
    ~BluetoothScene() {
        qm_DestroySingletons();
        destroyHarmless(peer);
    }

    static QmcWirelessProjectionBtProxy& proxy() { return *QmcWirelessProjectionBtProxy::getInstance(); }

    bool open() { return proxy().openServer() && proxy().openClient(); }

    /// Whether bytes go both ways. A reader that has nothing to read is woken by the close.
    static bool serves(milliseconds limit) {
        RfcommTransportInputOutput link(kDevice);
        auto read = harmless([&link] {
            return std::async(std::launch::async, [&link] {
                std::uint8_t bytes[3] = {};
                int count = 0;
                while ((count = link.read(bytes, sizeof(bytes))) == 0) {
                }
                return count == 3 && bytes[2] == 3;
            });
        });
        const bool sent = link.write("abc", 3) == 1;
        const bool received = isHandled("WPP_SOCKET_FROM_BT", phoneBytes(), limit);
        if (received) {
            harmless([&] { read.wait_for(limit); });
        }
        link.close();
        return harmless([&read] { return read.get(); }) && sent && received;
    }

    void restart(Trial& trial) {
        trial.endsWith(kDeadUntilRestart);
        proxy().closeServer();
        proxy().closeClient();
        unlink("WPP_SOCKET_FROM_BT");
        trial.require(open(), "the proxy does not open again");
        trial.require(serves(kLimit), "the proxy does not serve after it was opened again");
    }

private:
    const Scene scene;
    std::unique_ptr<wpp_test::AnsweringPeer> peer;
};

void bluetoothLife(Trial& trial) {
    BluetoothScene scene;
    {
        const TorturedWhile torture(trial, kTorturedLimit);
        trial.told(scene.open());
        trial.told(scene.serves(kTorturedLimit));
    }
    if (!scene.serves(kSoon)) {
        scene.restart(trial);
    }
    scene.proxy().closeServer();
    scene.proxy().closeClient();
}

void bluetoothTraffic(Trial& trial) {
    BluetoothScene scene;
    trial.require(scene.open() && scene.serves(kLimit), "the proxy does not serve");
    {
        const TorturedWhile torture(trial, kTorturedLimit);
        trial.told(scene.serves(kTorturedLimit));
    }
    if (!scene.serves(kSoon)) {
        scene.restart(trial);
    }
    scene.proxy().closeServer();
    scene.proxy().closeClient();
}

class Acceptor final : public IWifiProjectionProtocolTcpServerCallbacks {
public:
    void onClientAccepted(const ClientSocket& client) override {
        const Unharmed unharmed;
        close(client.fd);
        ++accepted;
    }

    std::atomic<int> accepted{0};
};

/// @return whether a phone that comes is accepted in time.
bool accepts(Acceptor& acceptor, std::uint16_t port, milliseconds limit) {
    const Unharmed unharmed;
    const int before = acceptor.accepted;
    return wpp_test::waitUntil(
        [&] {
            const QMDescriptor phone = wpp_test::connectTo(port);
            return phone.isValid() &&
                   wpp_test::waitUntil([&] { return acceptor.accepted > before; }, milliseconds(50));
        },
        limit);
}

void tcpServer(Trial& trial) {
    Acceptor acceptor;
    const std::uint16_t port = harmless([] { return wpp_test::freePort(); });
    const InetSocketAddress address("0.0.0.0", port);
    {
        std::optional<WifiProjectionProtocolTcpServer> server;
        trial.begin();
        server.emplace(&acceptor, address);
        try {
            server->start();
            trial.expect(accepts(acceptor, port, milliseconds(100)), "the server does not accept");
        } catch (const std::exception&) {
            trial.told(false);
        }
        const wpp_test::Stopwatch watch;
        server->stop();
        trial.require(watch.elapsed() < kSoon, "the server does not stop at once");
        server.reset();
        trial.end();
    }
    WifiProjectionProtocolTcpServer next(&acceptor, address);
    next.start();
    trial.require(accepts(acceptor, port, kLimit), "the next server does not accept");
}

/// The control service with its commands, with the library faked.
class ControlScene {
public:
    ControlScene() : peer(answeringPeer("WPP_SOCKET_FROM_WPP")) {
        wpp_test::FakeReceiverLib::instance().reset();
        service = std::make_unique<QmcWirelessProjectionService>();
    }
    ~ControlScene() {
        service.reset();
        qm_DestroySingletons();
        destroyHarmless(peer);
        wpp_test::FakeReceiverLib::instance().reset();
    }

    bool open() { return service->openServer() && service->openClient(); }

    /// Starts the protocol, tells it of a phone and stops it.
    static bool serves(milliseconds limit) {
        const char* const socket = "WPP_SOCKET_TO_WPP";
        const Unharmed unharmed;
        wpp_test::FramedPeer controller = wpp_test::FramedPeer::connectTo(socket, limit);
        const auto command = [&](const std::string& message) {
            return controller.isConnected() && controller.sendFrame(message) &&
                   controller.receiveFrame(limit) == kHandled;
        };
        controller.sendFrame(bytesOf(StartWifiProjectionProtocolSerializer(
            wifi_discovery::WifiChannelType{1}, {36, 40}, common::HeadUnitInfo(), "c", "k", "a")));
        return command(bytesOf(SetProjectionPortInfoSerializer("127.0.0.1", 30516))) &&
               command(bytesOf(AddDeviceInfoSerializer(kDevice, "phone", "client"))) &&
               command(bytesOf(DeleteDeviceInfoSerializer(kDevice))) && command(headerOf(1001));
    }

    static std::string headerOf(std::int32_t id) { return {reinterpret_cast<const char*>(&id), sizeof(id)}; }

    bool notifies() {
        const std::size_t before = harmless([this] { return peer->frames().size(); });
        service->OnClientLost(kDevice);
        return harmless([&] { return peer->frames().size() > before; });
    }

    void restart(Trial& trial) {
        trial.endsWith(kDeadUntilRestart);
        service->closeServer();
        service->closeClient();
        unlink("WPP_SOCKET_TO_WPP");
        trial.require(open(), "the service does not open again");
        trial.require(serves(kLimit) && notifies(), "the service does not serve after it was opened again");
    }

    /// Command 1 releases whoever waits for it.
    bool ends() {
        auto waiting = std::async(std::launch::async, [this] { service->waitExit(); });
        bool ordered = isHandled("WPP_SOCKET_TO_WPP", headerOf(1), kLimit);
        return ordered && waiting.wait_for(kLimit) == std::future_status::ready;
    }

    std::unique_ptr<QmcWirelessProjectionService> service;

private:
    const Scene scene;
    std::unique_ptr<wpp_test::AnsweringPeer> peer;
};

void controlLife(Trial& trial) {
    ControlScene scene;
    {
        const TorturedWhile torture(trial, kTorturedLimit);
        trial.told(scene.open());
        trial.told(scene.serves(kTorturedLimit) && scene.notifies());
    }
    if (!scene.serves(kSoon) || !scene.notifies()) {
        scene.restart(trial);
    }
    trial.require(scene.ends(), "command 1 does not end the wait");
}

/// Command 1 while calls fail. The order is given again when its link failed.
void controlEnd(Trial& trial) {
    std::optional<ControlScene> scene;
    trial.begin();
    scene.emplace();
    trial.end();
    trial.require(scene->open(), "the service does not open");
    trial.require(scene->serves(kLimit), "the service does not serve");
    auto waiting = std::async(std::launch::async, [&] { scene->service->waitExit(); });
    {
        const TorturedWhile torture(trial, kTorturedLimit);
        trial.told(isHandled("WPP_SOCKET_TO_WPP", ControlScene::headerOf(1), kTorturedLimit));
    }
    if (waiting.wait_for(milliseconds(500)) != std::future_status::ready) {
        trial.told(false);
        isHandled("WPP_SOCKET_TO_WPP", ControlScene::headerOf(1), kLimit);
    }
    trial.require(waiting.wait_for(kLimit) == std::future_status::ready, "command 1 does not end the wait");
}

}  // namespace

std::vector<Scenario> receiverCallScenarios() {
    return {
        {"bluetooth-life", bluetoothLife}, {"bluetooth-traffic", bluetoothTraffic},
        {"tcp-server", tcpServer},         {"control-life", controlLife},
        {"control-end", controlEnd},
    };
}

}  // namespace wpp_torture
