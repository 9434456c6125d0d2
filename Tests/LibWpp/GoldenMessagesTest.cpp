#include "Tests/LibWpp/GoldenMessages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "LibWpp/ControlMessages.h"
#include "LibWpp/SppMessages.h"
#include "LibWpp/WppIPCMessageHeader.h"
#include "Tests/LibWpp/MessageChecks.h"
#include "Tests/Support/LogCapture.h"

// What holds for every message alike.
namespace {

using namespace wifi_projection_protocol;
using namespace wpp_test;

using MakeMessage = std::unique_ptr<WppIPCMessageCore> (*)();

template <class Message>
std::unique_ptr<WppIPCMessageCore> make() {
    return std::make_unique<Message>();
}

const std::map<std::string, MakeMessage>& messageClasses() {
    static const std::map<std::string, MakeMessage> classes{
        {"Terminate", make<WppIPCMessageHeader>},
        {"StartWifiProjectionProtocol", make<StartWifiProjectionProtocolSerializer>},
        {"StopWifiProjectionProtocol", make<WppIPCMessageHeader>},
        {"SetProjectionPortInfo", make<SetProjectionPortInfoSerializer>},
        {"SetWifiInfo", make<SetWifiInfoSerializer>},
        {"RfcommConnected", make<RfcommConnectedSerializer>},
        {"RfcommDisconnected", make<RfcommDisconnectedSerializer>},
        {"StartProjection", make<StartProjectionSerializer>},
        {"StopProjectionStart", make<StopProjectionStartSerializer>},
        {"ReplyCanStartProjection", make<ReplyCanStartProjectionSerializer>},
        {"AddDeviceInfo", make<AddDeviceInfoSerializer>},
        {"DeleteDeviceInfo", make<DeleteDeviceInfoSerializer>},
        {"ResGetSecureSslKey", make<ResGetSecureSslKeySerializer>},
        {"OnReadyForProjection", make<OnReadyForProjectionSerializer>},
        {"OnWifiVersionResponseFailure", make<OnWifiVersionResponseFailureSerializer>},
        {"OnStartProjectionResponse", make<OnStartProjectionResponseSerializer>},
        {"CanStartProjection", make<CanStartProjectionSerializer>},
        {"OnWifiConnectStatus", make<OnWifiConnectStatusSerializer>},
        {"OnClientConnected", make<OnClientConnectedSerializer>},
        {"OnClientLost", make<OnClientLostSerializer>},
        {"ReqGetSecureSslKey", make<ReqGetSecureSslKeySerializer>},
        {"SendSppData", make<SendSppDataSerializer>},
        {"DisconnectSpp", make<DisconnectSppSerializer>},
        {"RecvSppData", make<RecvSppDataSerializer>},
    };
    return classes;
}

TEST(GoldenMessages, EveryMessageHasAnEntryAndEveryEntryAMessage) {
    std::set<std::string> known;
    for (const auto& entry : messageClasses()) {
        known.insert(entry.first);
    }
    std::set<std::string> golden;
    for (const auto& message : goldenMessages()) {
        golden.insert(message.name);
    }
    EXPECT_EQ(golden, known);
}

TEST(GoldenMessages, DecodingAndEncodingAgainGivesTheSameBytes) {
    for (const auto& golden : goldenMessages()) {
        if (golden.variant == "nul") {
            continue;  // texts are cut when they come in
        }
        const auto message = messageClasses().at(golden.name)();
        decode(*message, golden.bytes);
        EXPECT_TRUE(encoded(*message) == golden.bytes) << golden.name << " " << golden.variant;
    }
}

TEST(GoldenMessages, EveryMessageDecodesWhereverItBreaksOff) {
    constexpr std::size_t kCuts = 300;
    const LogCapture log;
    for (const auto& golden : goldenMessages()) {
        const std::size_t step = golden.bytes.size() / kCuts + 1;
        for (std::size_t length = 0; length < golden.bytes.size(); length += step) {
            // A copy of exactly this size lets the sanitizer see a read beyond it.
            const std::unique_ptr<char[]> cut(new char[length]);
            std::copy_n(golden.bytes.data(), length, cut.get());
            const auto message = messageClasses().at(golden.name)();
            EXPECT_TRUE(message->deserialize(cut.get(), static_cast<unsigned>(length))) << golden.name;
            encoded(*message);
        }
    }
    EXPECT_TRUE(log.contains("buffer size over!"));
}

TEST(GoldenMessages, EveryMessageDecodesWithEveryByteAtItsLargest) {
    const LogCapture log;
    for (const auto& golden : goldenMessages()) {
        for (std::size_t at = 0; at < std::min<std::size_t>(golden.bytes.size(), 200); ++at) {
            std::string damaged = golden.bytes;
            damaged[at] = '\xFF';
            const auto message = messageClasses().at(golden.name)();
            EXPECT_TRUE(decode(*message, damaged)) << golden.name;
        }
    }
    EXPECT_TRUE(log.contains("buffer size over!"));
}

}  // namespace
