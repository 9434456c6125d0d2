// The Bluetooth proxy as the Bluetooth process sees it: any frames over its listening socket, and what the phones'
// transports make of them. The proxy and its connections are kept from one input to the next.
//
// Received data is published once, as the model reads it, and acknowledged even when an observer fails; no other frame
// is. A transport hands on the bytes of its phone and service and no others; what it sends is framed as it was given.

#include <sys/socket.h>

#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Core/RfcommTransportInputOutput.h"
#include "LibWpp/SppMessages.h"
#include "LibWpp/SppReceivedData.h"
#include "Pattern/QMSubject.h"
#include "Proxy/QmcWirelessProjectionBtProxy.h"
#include "Tests/Fuzz/Support/ArchiveModel.h"
#include "Tests/Fuzz/Support/FuzzCheck.h"
#include "Tests/Fuzz/Support/FuzzInput.h"
#include "Tests/Fuzz/Support/LogTally.h"
#include "Tests/Fuzz/Support/MessageModel.h"
#include "Tests/Support/Deadline.h"
#include "Tests/Support/FramedPeer.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/WppReceiver/Support/AnsweringPeer.h"

namespace {

using namespace wifi_projection_protocol;
using wpp_test::ArchiveModel;
using wpp_test::FuzzInput;

constexpr std::size_t kMostFrames = 16;
constexpr std::uint8_t kPhone = 5;

struct Record {
    std::uint8_t btDeviceId;
    std::string uuid;
    std::string bytes;
    bool operator==(const Record& other) const {
        return btDeviceId == other.btDeviceId && uuid == other.uuid && bytes == other.bytes;
    }
};

class Scene {
public:
    Scene() {
        directory.enter();
        bluetooth.emplace("WPP_SOCKET_TO_BT");
        proxy = QmcWirelessProjectionBtProxy::getInstance();
        FUZZ_CHECK(proxy->openServer() && proxy->openClient());
        transport.emplace(kPhone);
        proxy->AddObserver(&observer);
        connect();
    }
    ~Scene() {
        proxy->RemoveObserver(&observer);
        transport.reset();
        proxy->closeServer();
        proxy->closeClient();
    }
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    void run(FuzzInput& input) {
        wpp_test::forgetLog();
        const unsigned flags = input.takeByte();
        observerFails = flags % 8 == 7;
        records.clear();
        std::vector<Record> expected;
        std::string replies;
        for (std::size_t count = 0; count < kMostFrames && !input.isEmpty(); ++count) {
            const std::size_t length = input.takeShort() % 512;
            const std::string frame = takeFrame(input, length);
            if (!frame.empty()) {
                FUZZ_CHECK(peer.sendFrame(frame));
                replies += wpp_test::frameOf(std::string(1, take(frame, expected) ? '\1' : '\0'));
            }
        }
        const std::optional<std::string> received = peer.receiveBytes(replies.size());
        FUZZ_CHECK(received && *received == replies);
        FUZZ_CHECK(records == expected);
        readTransport(expected);
        if (!expected.empty()) {
            writeTransport(expected.back().bytes);
        }
        if (flags >= 0xF8) {
            sendWithoutListening("no message");
        }
    }

private:
    void connect() {
        peer = wpp_test::FramedPeer::connectTo("WPP_SOCKET_FROM_BT");
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

    /// A frame as it is, or one with data of the phone whose transport is open.
    static std::string takeFrame(FuzzInput& input, std::size_t length) {
        if (length % 4 != 3) {
            return input.takeText(length);
        }
        const std::vector<std::uint8_t> bytes = input.takeBytes(length);
        RecvSppDataSerializer message(kPhone, RfcommTransportInputOutput::kServiceUuid, bytes.data(),
                                      static_cast<std::uint32_t>(bytes.size()));
        message.serialize();
        const std::uint8_t* first = message.archive.getBuffer();
        return std::string(first, first + message.archive.getSize());
    }

    /// @return whether the frame is received data; it is then what the observers must see next.
    static bool take(const std::string& frame, std::vector<Record>& expected) {
        ArchiveModel model(reinterpret_cast<const std::uint8_t*>(frame.data()), frame.size());
        std::int32_t id = -1;
        model.raw(id);
        if (id != RecvSppDataSerializer::kMessageId) {
            return false;
        }
        Record record;
        record.btDeviceId = model.byte();
        record.uuid = model.text();
        const std::uint32_t length = model.word();
        record.bytes = length == 0 ? std::string() : model.bytes(length);
        expected.push_back(record);
        return true;
    }

    unsigned onData(unsigned event, const void* data, int size) {
        FUZZ_CHECK(event == QmcWirelessProjectionBtProxy::kSppDataReceived && size == kSppReceivedDataSize);
        const auto& received = *static_cast<const SppReceivedData*>(data);
        records.push_back({received.btDeviceId, received.uuid,
                           std::string(received.data, received.data + received.length)});
        if (observerFails) {
            throw std::runtime_error("the observer fails");
        }
        return 0;
    }

    void readTransport(const std::vector<Record>& published) {
        std::string expected;
        bool hasSignal = false;
        for (const Record& record : published) {
            if (record.btDeviceId == kPhone && record.uuid == RfcommTransportInputOutput::kServiceUuid) {
                expected += record.bytes;
                hasSignal = true;
            }
        }
        std::string taken;
        while (hasSignal && taken.size() < expected.size()) {
            std::vector<char> piece(100);
            const int count = transport->read(piece.data(), static_cast<unsigned>(piece.size()));
            FUZZ_CHECK(count >= 0);
            taken.append(piece.data(), static_cast<std::size_t>(count));
        }
        FUZZ_CHECK(taken == expected);
    }

    void writeTransport(const std::string& bytes) {
        bluetooth->forgetFrames();
        FUZZ_CHECK(transport->write(bytes.data(), static_cast<unsigned>(bytes.size())) == 1);
        const std::vector<std::string> frames = bluetooth->frames();
        FUZZ_CHECK(frames.size() == 1);
        ArchiveModel model(reinterpret_cast<const std::uint8_t*>(frames[0].data()), frames[0].size());
        std::int32_t id = 0;
        model.raw(id);
        FUZZ_CHECK(id == SendSppDataSerializer::kMessageId && model.byte() == kPhone);
        FUZZ_CHECK(model.text() == RfcommTransportInputOutput::kServiceUuid);
        FUZZ_CHECK(model.word() == bytes.size() && model.remaining() == bytes.size());
        FUZZ_CHECK(bytes.empty() || model.bytes(bytes.size()) == bytes);
    }

    wpp_test::TemporaryDirectory directory;
    std::optional<wpp_test::AnsweringPeer> bluetooth;
    QmcWirelessProjectionBtProxy* proxy = nullptr;
    std::optional<RfcommTransportInputOutput> transport;
    wpp_test::FramedPeer peer;
    QMObserver<Scene> observer{this, &Scene::onData};

    // Written by the proxy's thread between a frame and its reply, by this one else.
    std::vector<Record> records;
    bool observerFails = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Scene scene;
    FuzzInput input(data, size);
    scene.run(input);
    return 0;
}
