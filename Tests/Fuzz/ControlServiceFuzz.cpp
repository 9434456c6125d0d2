// The control service as its controller sees it: whole sessions of frames over its two sockets, with the library's
// interface faked. The service and its connections are kept from one input to the next; each input ends with the
// stop command.
//
// Every frame is answered as the command list says, and the library has been given exactly what the frames said; the
// TLS texts that the controller sends back come out as the model reads them.

#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Core/ClientNames.h"
#include "LibWpp/ControlMessages.h"
#include "LibWpp/WppIPCMessageHeader.h"
#include "Proxy/QmcWirelessProjectionService.h"
#include "Tests/Fuzz/Support/ArchiveModel.h"
#include "Tests/Fuzz/Support/FuzzCheck.h"
#include "Tests/Fuzz/Support/FuzzInput.h"
#include "Tests/Fuzz/Support/LogTally.h"
#include "Tests/Fuzz/Support/MessageModel.h"
#include "Tests/Support/Deadline.h"
#include "Tests/Support/FramedPeer.h"
#include "Tests/Support/OwnNetwork.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/WppReceiver/Support/AnsweringPeer.h"
#include "Tests/WppReceiver/Support/FakeReceiverLib.h"

namespace {

using namespace wifi_projection_protocol;
using wpp_test::ArchiveModel;
using wpp_test::FakeReceiverLib;
using wpp_test::FuzzInput;

constexpr std::size_t kMostFrames = 12;
constexpr std::int32_t kNoCommand = 0x7FFFFFFF;
constexpr std::uint8_t kNoDeviceId = 255;

// What the library reads before the controller has sent anything.
constexpr const char* kNoHost = "0.0.0.0";
constexpr std::uint32_t kNoWifiInfo4 = 40;

/// What the library does wrong in a session.
enum Trouble : unsigned {
    kNoProtocol = 1,
    kNoConnection = 2,
    kNoDisconnection = 4,
    kStartsFail = 8,
    kNobodyListens = 0xE0
};

ArchiveModel bodyOf(const std::string& frame) {
    ArchiveModel model(reinterpret_cast<const std::uint8_t*>(frame.data()), frame.size());
    std::int32_t id = 0;
    model.raw(id);
    return model;
}

std::uint32_t rawWord(ArchiveModel& body) {
    std::uint32_t word = 0;
    body.raw(word);
    return word;
}

/// The service as the list of commands describes it.
class Model {
public:
    explicit Model(unsigned libraryTroubles) : troubles(libraryTroubles) {}

    /// @return the reply byte; none when the frame gets no reply.
    std::optional<char> take(const std::string& frame) {
        std::int32_t id = -1;
        if (frame.size() >= sizeof(id)) {
            std::memcpy(&id, frame.data(), sizeof(id));
        }
        if (id == kTerminateMessageId || id == kStopWifiProjectionProtocolMessageId) {
            terminations += id == kTerminateMessageId ? 1 : 0;
            stop();
            return 1;
        }
        if (id == StartWifiProjectionProtocolSerializer::kMessageId) {
            start();
            return std::nullopt;
        }
        const bool isCommand =
            id >= SetProjectionPortInfoSerializer::kMessageId && id <= DeleteDeviceInfoSerializer::kMessageId;
        ArchiveModel body = bodyOf(frame);
        return isCommand && isStarted && perform(id, body) ? 1 : 0;
    }

    bool isStarted = false;
    unsigned terminations = 0;
    std::size_t constructions = 0;
    std::size_t starts = 0;
    std::vector<std::string> connected;
    std::vector<std::string> disconnected;

    struct Device {
        std::uint8_t id;
        std::string clientId;
    };
    std::vector<Device> devices;
    std::string host = kNoHost;
    std::uint16_t port = 0;
    std::string wifiInfo[3];
    std::uint32_t wifiInfo4 = kNoWifiInfo4;

private:
    void start() {
        if (!isStarted && (troubles & kNoProtocol) == 0) {
            isStarted = true;
            ++constructions;
        }
    }

    void stop() {
        isStarted = false;
        devices.clear();
        host = kNoHost;
        port = 0;
        std::fill(std::begin(wifiInfo), std::end(wifiInfo), std::string());
        wifiInfo4 = kNoWifiInfo4;
    }

    /// @return whether the library took it.
    bool perform(std::int32_t id, ArchiveModel& body) {
        switch (id) {
            case SetProjectionPortInfoSerializer::kMessageId:
                host = body.text();
                port = static_cast<std::uint16_t>(body.number(2));
                return true;
            case SetWifiInfoSerializer::kMessageId:
                for (std::string& text : wifiInfo) {
                    text = body.text();
                }
                wifiInfo4 = rawWord(body);
                return true;
            case RfcommConnectedSerializer::kMessageId:
                return note(connected, kNoConnection, body.byte());
            case RfcommDisconnectedSerializer::kMessageId:
                return note(disconnected, kNoDisconnection, body.byte());
            case StartProjectionSerializer::kMessageId:
                ++starts;
                return true;
            case AddDeviceInfoSerializer::kMessageId:
                addDevice(body);
                return true;
            case DeleteDeviceInfoSerializer::kMessageId:
                remove(body.byte());
                return true;
            default:
                return true;
        }
    }

    bool note(std::vector<std::string>& names, unsigned trouble, std::uint8_t id) const {
        if ((troubles & trouble) != 0) {
            return false;
        }
        names.push_back(rfcommClientName(id));
        return true;
    }

    void addDevice(ArchiveModel& body) {
        const std::uint8_t id = body.byte();
        body.text();
        const std::string clientId = body.text();
        const auto isSame = [id](const Device& device) { return device.id == id; };
        if (std::none_of(devices.begin(), devices.end(), isSame)) {
            devices.push_back({id, clientId});
        }
    }

    void remove(std::uint8_t id) {
        const auto isSame = [id](const Device& device) { return device.id == id; };
        devices.erase(std::remove_if(devices.begin(), devices.end(), isSame), devices.end());
    }

    const unsigned troubles;
};

class Scene {
public:
    Scene() {
        wpp_test::enterOwnNetwork();
        directory.enter();
        controller.emplace("WPP_SOCKET_FROM_WPP", [this](const std::string&) { return answer(); });
        FUZZ_CHECK(service.openServer() && service.openClient());
        connect();
    }

    void run(FuzzInput& input) {
        const unsigned troubles = input.takeByte();
        prepare(troubles);
        Model model(troubles);
        std::string expected;
        std::size_t count = 0;
        while (!input.isEmpty() && count++ < kMostFrames) {
            const std::size_t length = input.takeShort() % 512;
            const std::string frame = input.takeText(length);
            if (!frame.empty()) {
                send(model, frame, expected);
            }
        }
        // A frame that is always answered, so that what came before it is done.
        send(model, header(kNoCommand), expected);
        receive(expected);
        checkKeptValues(model);
        checkTlsTexts(input);
        expected.clear();
        if ((troubles & kNobodyListens) == kNobodyListens) {
            const std::string frame =
                header(model.isStarted ? RfcommConnectedSerializer::kMessageId : kNoCommand);
            sendWithoutListening(frame);
            model.take(frame);
        }
        send(model, header(kStopWifiProjectionProtocolMessageId), expected);
        receive(expected);
        checkCalls(model);
    }

private:
    void connect() {
        peer = wpp_test::FramedPeer::connectTo("WPP_SOCKET_TO_WPP");
        FUZZ_CHECK(peer.isConnected());
    }

    /// A peer that takes no reply: the frame is handled and the failure logged.
    void sendWithoutListening(const std::string& frame) {
        ::shutdown(peer.socket(), SHUT_RD);
        FUZZ_CHECK(peer.sendFrame(frame));
        FUZZ_CHECK(wpp_test::waitUntil(
            [] { return wpp_test::logLinesFrom("*** message processing failed! *** messageId[") > 0; }));
        connect();
    }

    void prepare(unsigned troubles) {
        wpp_test::forgetLog();
        controller->forgetFrames();
        reply(std::string(1, '\1'));
        library.reset();
        (troubles & kStartsFail) != 0 ? library.giveStartsNoSharedState() : library.answerStarts(troubles);
        if ((troubles & kNoProtocol) != 0) {
            library.throwFrom("WifiProjectionProtocol", "no protocol");
        }
        if ((troubles & kNoConnection) != 0) {
            library.throwFrom("ClientConnected", "no connection");
        }
        if ((troubles & kNoDisconnection) != 0) {
            library.throwFrom("ClientDisconnected", "no disconnection");
        }
    }

    static std::string header(std::int32_t id) {
        WppIPCMessageHeader message(id);
        message.serialize();
        const std::uint8_t* first = message.archive.getBuffer();
        return std::string(first, first + message.archive.getSize());
    }

    void send(Model& model, const std::string& frame, std::string& expected) {
        FUZZ_CHECK(peer.sendFrame(frame));
        if (const std::optional<char> byte = model.take(frame)) {
            expected += wpp_test::frameOf(std::string(1, *byte));
        }
    }

    void receive(const std::string& expected) {
        const std::optional<std::string> replies = peer.receiveBytes(expected.size());
        FUZZ_CHECK(replies && *replies == expected);
    }

    /// While the protocol lives, after every command has been answered.
    void checkKeptValues(const Model& model) {
        WifiProjectionInfoProvider* provider = library.infoProvider();
        FUZZ_CHECK((provider != nullptr) == model.isStarted);
        if (provider == nullptr) {
            return;
        }
        FUZZ_CHECK(provider->projectionAddress().host() == model.host);
        FUZZ_CHECK(provider->projectionAddress().port() == model.port);
        FUZZ_CHECK(provider->wifiInfo1() == model.wifiInfo[0] && provider->wifiInfo2() == model.wifiInfo[1]);
        FUZZ_CHECK(provider->wifiInfo3() == model.wifiInfo[2]);
        FUZZ_CHECK(provider->wifiInfo4() == static_cast<int>(model.wifiInfo4));
        for (const Model::Device& device : model.devices) {
            const auto first =
                std::find_if(model.devices.begin(), model.devices.end(),
                             [&](const auto& other) { return other.clientId == device.clientId; });
            FUZZ_CHECK(library.callback()->isClientKnown(device.clientId) == (first->id != kNoDeviceId));
        }
        FUZZ_CHECK(!library.callback()->isClientKnown(std::string(600, 'x')));
    }

    /// The rest of the input is what the controller answers to the request for the TLS texts.
    void checkTlsTexts(FuzzInput& input) {
        const std::string answered = input.takeText(512);
        if (answered.empty()) {
            return;
        }
        reply(answered);
        std::string texts[] = {"a", "b", "c"};
        const bool isFetched = service.ReqGetSecureSslKey(texts[0], texts[1], texts[2]);
        reply(std::string(1, '\1'));
        std::int32_t id = -1;
        if (answered.size() >= sizeof(id)) {
            std::memcpy(&id, answered.data(), sizeof(id));
        }
        FUZZ_CHECK(isFetched == (id == ResGetSecureSslKeySerializer::kMessageId));
        ArchiveModel body = bodyOf(answered);
        const char* untouched[] = {"a", "b", "c"};
        for (std::size_t i = 0; i < std::size(texts); ++i) {
            FUZZ_CHECK(texts[i] == (isFetched ? body.text() : untouched[i]));
        }
        tellController(texts[0]);
    }

    /// Everything that the service says of itself, in the order of the ids.
    void tellController(const std::string& text) {
        service.OnReadyForProjection(1, text, "", text);
        service.OnWifiVersionResponseFailure(2, "", text, "", 7);
        service.OnStartProjectionResponse(3, 1);
        service.CanStartProjection(4);
        service.OnWifiConnectStatus(5, 6, text);
        service.OnClientConnected(6);
        service.OnClientLost(7);
        std::vector<std::int32_t> told = controller->ids();
        // A start under way reports its end on a thread of its own.
        told.erase(std::remove(told.begin(), told.end(), OnStartProjectionResponseSerializer::kMessageId),
                   told.end());
        const std::vector<std::int32_t> expected{2007, 2000, 2001, 2003, 2004, 2005, 2006};
        FUZZ_CHECK(told == expected);
    }

    /// After the stop, when every thread of the protocol has ended.
    void checkCalls(const Model& model) {
        FUZZ_CHECK(library.liveProtocols() == 0 && library.liveFactories() == 0);
        FUZZ_CHECK(library.constructions().size() == model.constructions);
        FUZZ_CHECK(library.starts().size() == model.starts);
        FUZZ_CHECK(library.disconnected() == model.disconnected);
        std::vector<std::string> connected;
        for (const FakeReceiverLib::Client& client : library.connected()) {
            FUZZ_CHECK(client.type == TransportType::kRfcomm);
            connected.push_back(client.name);
        }
        FUZZ_CHECK(connected == model.connected);
        for (unsigned i = 0; i < model.terminations; ++i) {
            service.waitExit();
        }
    }

    void reply(const std::string& bytes) {
        const std::lock_guard<std::mutex> guard(mutex);
        controllersReply = bytes;
    }

    std::optional<std::string> answer() {
        const std::lock_guard<std::mutex> guard(mutex);
        return controllersReply;
    }

    wpp_test::TemporaryDirectory directory;
    FakeReceiverLib& library = FakeReceiverLib::instance();
    std::mutex mutex;
    std::string controllersReply;  // guarded by mutex
    std::optional<wpp_test::AnsweringPeer> controller;
    wpp_test::FramedPeer peer;
    QmcWirelessProjectionService service;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Scene scene;
    FuzzInput input(data, size);
    scene.run(input);
    return 0;
}
