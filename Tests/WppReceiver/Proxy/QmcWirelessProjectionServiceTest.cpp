#include "Proxy/QmcWirelessProjectionService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <memory>
#include <optional>

#include "LibWpp/ControlMessages.h"
#include "LibWpp/WppIPCMessageHeader.h"
#include "Pattern/QMSingleton.h"
#include "Tests/Support/FailingCall.h"
#include "Tests/Support/FramedPeer.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/NoNewThreads.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/WppReceiver/Support/AnsweringPeer.h"
#include "Tests/WppReceiver/Support/FakeReceiverLib.h"

namespace {

using namespace wifi_projection_protocol;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using testing::SizeIs;
using wpp_test::AnsweringPeer;
using wpp_test::FakeReceiverLib;
using wpp_test::FramedPeer;
using Bytes = std::string;

const Bytes kHandled(1, '\1');
const Bytes kNotHandled(1, '\0');

Bytes encode(WppIPCMessageCore& message) {
    message.serialize();
    return Bytes(message.archive.getBuffer(), message.archive.getBuffer() + message.archive.getSize());
}

Bytes encode(WppIPCMessageCore&& message) {
    return encode(message);
}

Bytes headerOnly(std::int32_t id) {
    WppIPCMessageHeader header;
    header.messageId = id;
    return encode(header);
}

/// One valid command of every kind that needs a started protocol.
std::vector<Bytes> commandsOnProtocol() {
    return {
        encode(SetProjectionPortInfoSerializer("192.168.1.1", 30516)),
        encode(SetWifiInfoSerializer("a", "b", "c", 4)),
        encode(RfcommConnectedSerializer(3)),
        encode(RfcommDisconnectedSerializer(3)),
        encode(StartProjectionSerializer(3, wifi_discovery::StartRequestReason{1})),
        encode(StopProjectionStartSerializer(3)),
        encode(ReplyCanStartProjectionSerializer(3, 1)),
        encode(AddDeviceInfoSerializer(3, "info", "phone")),
        encode(DeleteDeviceInfoSerializer(3)),
    };
}

/// The control service with a controller on its two sockets.
class ControlService : public testing::Test {
protected:
    ControlService() {
        FakeReceiverLib::instance().reset();
        directory.enter();
        service = std::make_unique<QmcWirelessProjectionService>();
        service->openServer();
        controller = FramedPeer::connectTo("WPP_SOCKET_TO_WPP");
    }

    ~ControlService() override {
        service.reset();
        qm_DestroySingletons();
    }

    /// Sends a command and waits for its reply byte.
    std::optional<Bytes> command(const Bytes& payload) {
        controller.sendFrame(payload);
        return controller.receiveFrame();
    }

    /// Sends command 1000, which has no reply; the reply to an unknown command behind it shows that it is
    /// done.
    void start(const std::string& certificate = "") {
        controller.sendFrame(encode(StartWifiProjectionProtocolSerializer(
            wifi_discovery::WifiChannelType{2}, {36, 40}, common::HeadUnitInfo(), certificate, "key", "ca")));
        EXPECT_THAT(command(headerOnly(999)), Optional(kNotHandled));
        log.clear();
    }

    /// A controller that acknowledges what the service sends.
    void connectClient(AnsweringPeer::Answer answer = AnsweringPeer::alwaysAnswer(1)) {
        listening = std::make_unique<AnsweringPeer>("WPP_SOCKET_FROM_WPP", std::move(answer));
        ASSERT_TRUE(service->openClient());
    }

    FakeReceiverLib& library = FakeReceiverLib::instance();
    wpp_test::LogCapture log;
    wpp_test::TemporaryDirectory directory;
    std::unique_ptr<AnsweringPeer> listening;
    std::unique_ptr<QmcWirelessProjectionService> service;
    FramedPeer controller;
};

TEST_F(ControlService, EveryCommandBeforeTheStartIsAnsweredWithZeroAndDropped) {
    for (const Bytes& payload : commandsOnProtocol()) {
        EXPECT_THAT(command(payload), Optional(kNotHandled));
    }
    EXPECT_EQ(log.count("WPP has not started."), commandsOnProtocol().size());
    EXPECT_THAT(library.constructions(), IsEmpty());
}

TEST_F(ControlService, TheLogLineOfADroppedCommandNamesItsHandler) {
    command(encode(RfcommConnectedSerializer(3)));
    EXPECT_TRUE(log.contains("[error] receiveRfcommConnected()@QmcWirelessProjectionService("));
    EXPECT_THAT(library.connected(), IsEmpty());
}

TEST_F(ControlService, EveryCommandAfterTheStartIsAnsweredWithOne) {
    start();
    for (const Bytes& payload : commandsOnProtocol()) {
        EXPECT_THAT(command(payload), Optional(kHandled));
    }
    EXPECT_FALSE(log.contains("has not started"));
}

TEST_F(ControlService, TheStartHandsItsFieldsToTheLibrary) {
    common::HeadUnitInfo info;
    info.set_text_3("third");
    controller.sendFrame(encode(StartWifiProjectionProtocolSerializer(wifi_discovery::WifiChannelType{9},
                                                                      {1, 2, 3}, info, "", "", "")));
    EXPECT_THAT(command(headerOnly(999)), Optional(kNotHandled));

    ASSERT_THAT(library.constructions(), SizeIs(1));
    EXPECT_EQ(library.constructions()[0].channelType, wifi_discovery::WifiChannelType{9});
    EXPECT_THAT(library.constructions()[0].channelList, ElementsAre(1, 2, 3));
    EXPECT_EQ(library.constructions()[0].headUnitInfo.text_3(), "third");
    EXPECT_TRUE(library.constructions()[0].headUnitInfo.has_text_8());
}

TEST_F(ControlService, ASecondStartIsIgnoredAndNeitherIsAnswered) {
    start();
    start();

    EXPECT_THAT(library.constructions(), SizeIs(1));
    EXPECT_EQ(library.liveProtocols(), 1);
    EXPECT_EQ(controller.receiveFrame(std::chrono::milliseconds(150)), std::nullopt);
}

TEST_F(ControlService, AfterAStopACommandIsAnsweredWithZero) {
    start();
    EXPECT_THAT(command(headerOnly(1001)), Optional(kHandled));
    EXPECT_EQ(library.liveProtocols(), 0);
    EXPECT_THAT(command(encode(RfcommConnectedSerializer(3))), Optional(kNotHandled));
}

TEST_F(ControlService, AStopWithoutAStartIsAnsweredWithOne) {
    EXPECT_THAT(command(headerOnly(1001)), Optional(kHandled));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ControlService, AStopAndAnotherStartMakeANewProtocol) {
    start();
    EXPECT_THAT(command(headerOnly(1001)), Optional(kHandled));
    start();
    EXPECT_THAT(library.constructions(), SizeIs(2));
    EXPECT_EQ(library.liveProtocols(), 1);
}

TEST_F(ControlService, IdsOutsideTheCommandsAreUnknown) {
    for (const std::int32_t id : {999, 1011, 2000, 0, -1, 2, 0x7FFFFFFF}) {
        log.clear();
        EXPECT_THAT(command(headerOnly(id)), Optional(kNotHandled));
        EXPECT_TRUE(log.contains("[error] onReceivedServerSocket()@QmcWirelessProjectionService("));
        EXPECT_TRUE(log.contains("*** unknown message! *** messageId[" + std::to_string(id) + "] "));
    }
}

TEST_F(ControlService, AnEmptyBufferIsIgnoredWithoutAReply) {
    controller.sendFrame("");
    EXPECT_EQ(controller.receiveFrame(std::chrono::milliseconds(150)), std::nullopt);
    EXPECT_FALSE(log.contains("QmcWirelessProjectionService"));
    EXPECT_THAT(command(headerOnly(1001)), Optional(kHandled));
}

TEST_F(ControlService, AMessageTooShortForAnIdIsUnknown) {
    EXPECT_THAT(command("abc"), Optional(kNotHandled));
    EXPECT_TRUE(log.contains("*** unknown message! *** messageId[-1] "));
}

TEST_F(ControlService, ATruncatedCommandIsHandledWithDefaultFieldsAndAnsweredWithOne) {
    start();
    Bytes payload = encode(SetWifiInfoSerializer("name", "key", "third", 7));
    payload.resize(12);
    EXPECT_THAT(command(payload), Optional(kHandled));

    EXPECT_TRUE(log.contains("[error] read()@QMSerializable("));
    EXPECT_TRUE(log.contains("buffer size over!"));
    EXPECT_EQ(library.infoProvider()->wifiInfo1(), "name");
    EXPECT_EQ(library.infoProvider()->wifiInfo2(), "");
    EXPECT_EQ(library.infoProvider()->wifiInfo4(), 0);
}

TEST_F(ControlService, ALengthWordBeyondTheMessageGivesAnEmptyFieldAndAReplyOfOne) {
    start();
    EXPECT_THAT(command(headerOnly(1003) + Bytes("\xFF\xFF\xFF\xFF", 4) + "abc"), Optional(kHandled));
    EXPECT_EQ(library.infoProvider()->wifiInfo1(), "");
}

TEST_F(ControlService, EveryCommandReachesItsOperation) {
    start();
    command(encode(SetProjectionPortInfoSerializer("192.168.1.1", 258)));
    EXPECT_EQ(library.infoProvider()->projectionAddress().host(), "192.168.1.1");
    EXPECT_EQ(library.infoProvider()->projectionAddress().port(), 258);
    command(encode(SetWifiInfoSerializer("a", "b", "c", 0xFFFFFFFF)));
    EXPECT_EQ(library.infoProvider()->wifiInfo3(), "c");
    EXPECT_EQ(library.infoProvider()->wifiInfo4(), -1);
    command(encode(AddDeviceInfoSerializer(3, "info", "phone")));
    EXPECT_TRUE(library.callback()->isClientKnown("phone"));
    command(encode(RfcommConnectedSerializer(3)));
    EXPECT_THAT(library.connected(),
                ElementsAre(FakeReceiverLib::Client{"RFCOMM_3", TransportType::kRfcomm}));
    command(encode(RfcommDisconnectedSerializer(3)));
    EXPECT_THAT(library.disconnected(), ElementsAre("RFCOMM_3"));
    command(encode(StartProjectionSerializer(3, wifi_discovery::StartRequestReason{5})));
    ASSERT_TRUE(library.waitForStarts(1));
    EXPECT_EQ(library.starts()[0].clientId, "phone");
    EXPECT_EQ(library.starts()[0].reason, wifi_discovery::StartRequestReason{5});
    command(encode(StopProjectionStartSerializer(200)));
    EXPECT_TRUE(log.contains("StartProjection timeout. BtDeviceId=3"));
    command(encode(DeleteDeviceInfoSerializer(3)));
    EXPECT_FALSE(library.callback()->isClientKnown("phone"));
}

TEST_F(ControlService, TheControllersAnswerReachesAWaitingQuestion) {
    start();
    connectClient();
    command(encode(AddDeviceInfoSerializer(3, "info", "phone")));
    ClientInfo client;
    client.clientId = "phone";
    std::future<int> answer =
        std::async(std::launch::async, [&] { return library.callback()->canStartProjection(client); });
    ASSERT_TRUE(listening->waitForId(2003));
    command(encode(ReplyCanStartProjectionSerializer(3, 0xFFFFFFFE)));

    EXPECT_EQ(answer.get(), -2);
}

TEST_F(ControlService, AReplyThatCannotBeSentIsLogged) {
    start();
    controller.sendFrame(encode(StartProjectionSerializer(3, wifi_discovery::StartRequestReason{5})));
    ASSERT_TRUE(library.waitForStarts(1));
    EXPECT_THAT(controller.receiveFrame(), Optional(kHandled));
    // Cancelling the start takes a moment, in which the peer goes.
    controller.sendFrame(encode(StopProjectionStartSerializer(3)));
    controller.close();

    EXPECT_TRUE(log.waitFor("*** message processing failed! *** messageId[1007] "));
}

TEST_F(ControlService, AStartThatThrowsIsLoggedUnansweredAndTheNextOneWorks) {
    library.throwFrom("WifiProjectionProtocol", "no room");
    controller.sendFrame(encode(StartWifiProjectionProtocolSerializer()));
    EXPECT_THAT(command(encode(RfcommConnectedSerializer(3))), Optional(kNotHandled));
    EXPECT_TRUE(log.contains("[error] onReceivedServerSocket()@QmcWirelessProjectionService("));
    EXPECT_TRUE(log.contains("catch exception. messageId[1000], what [no room]"));

    library.reset();
    start();
    EXPECT_THAT(command(encode(RfcommConnectedSerializer(3))), Optional(kHandled));
}

TEST_F(ControlService, AStartWithoutAServerThreadIsLoggedAndTheNextOneWorks) {
    {
        const wpp_test::NoNewThreads shortage;
        controller.sendFrame(encode(StartWifiProjectionProtocolSerializer()));
        EXPECT_THAT(command(headerOnly(999)), Optional(kNotHandled));
    }
    EXPECT_TRUE(log.contains("catch exception. messageId[1000], what ["));
    EXPECT_EQ(library.liveProtocols(), 0);

    start();
    EXPECT_EQ(library.liveProtocols(), 1);
}

TEST_F(ControlService, ACommandThatThrowsIsLoggedAndAnsweredWithZero) {
    start();
    library.throwFrom("ClientConnected", "no room");
    EXPECT_THAT(command(encode(RfcommConnectedSerializer(3))), Optional(kNotHandled));

    EXPECT_TRUE(log.contains("catch exception. messageId[1004], what [no room]"));
    EXPECT_FALSE(log.contains("message processing failed"));
    EXPECT_THAT(command(encode(RfcommDisconnectedSerializer(3))), Optional(kHandled));
}

TEST_F(ControlService, AStartOfProjectionWithoutAThreadIsAnsweredWithZero) {
    start();
    {
        const wpp_test::NoNewThreads shortage;
        EXPECT_THAT(command(encode(StartProjectionSerializer(3, wifi_discovery::StartRequestReason{1}))),
                    Optional(kNotHandled));
    }
    EXPECT_TRUE(log.contains("catch exception. messageId[1006], what ["));
    EXPECT_THAT(library.starts(), IsEmpty());
    EXPECT_THAT(command(encode(StartProjectionSerializer(3, wifi_discovery::StartRequestReason{1}))),
                Optional(kHandled));
    EXPECT_TRUE(library.waitForStarts(1));
}

TEST_F(ControlService, TerminateDeletesTheProtocolReleasesTheMainThreadAndIsAnsweredWithOne) {
    start();
    std::future<void> mainThread = std::async(std::launch::async, [this] { service->waitExit(); });
    EXPECT_THAT(command(headerOnly(1)), Optional(kHandled));

    mainThread.get();
    EXPECT_EQ(library.liveProtocols(), 0);
    EXPECT_THAT(command(headerOnly(1001)), Optional(kHandled));
}

TEST_F(ControlService, AShortageOfDescriptorsDoesNotReleaseTheMainThread) {
    std::future<void> mainThread;
    {
        const wpp_test::FailingCall shortage(wpp_test::SystemCall::kEpollCreate, EMFILE);
        mainThread = std::async(std::launch::async, [this] { service->waitExit(); });
        EXPECT_EQ(mainThread.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    }
    EXPECT_THAT(command(headerOnly(1)), Optional(kHandled));
    mainThread.get();
}

TEST_F(ControlService, DestructionDeletesAProtocolThatStillRuns) {
    start();
    service.reset();
    EXPECT_EQ(library.liveProtocols(), 0);
}

TEST_F(ControlService, ASecondControllerIsServedToo) {
    FramedPeer second = FramedPeer::connectTo("WPP_SOCKET_TO_WPP");
    second.sendFrame(headerOnly(1001));
    EXPECT_THAT(second.receiveFrame(), Optional(kHandled));
    EXPECT_THAT(command(headerOnly(1001)), Optional(kHandled));
}

TEST_F(ControlService, CanStartProjectionSendsFiveBytes) {
    connectClient();
    service->CanStartProjection(7);
    EXPECT_THAT(listening->frames(), ElementsAre(Bytes("\xD3\x07\0\0\x07", 5)));
}

TEST_F(ControlService, ADeviceIdOf300IsSentAs44) {
    connectClient();
    constexpr int kWide = 300;
    service->OnClientLost(static_cast<std::uint8_t>(kWide));
    CanStartProjectionSerializer wide(kWide);

    EXPECT_THAT(listening->frames(), ElementsAre(Bytes("\xD6\x07\0\0\x2C", 5)));
    EXPECT_EQ(encode(wide), Bytes("\xD3\x07\0\0\x2C", 5));
}

TEST_F(ControlService, EachNotificationIsOneMessageWithItsFields) {
    connectClient();
    service->OnReadyForProjection(1, "a", "b", "c");
    service->OnWifiVersionResponseFailure(2, "d", "e", "f", 5);
    service->OnStartProjectionResponse(3, 6);
    service->CanStartProjection(4);
    service->OnWifiConnectStatus(5, 7, "g");
    service->OnClientConnected(6);
    service->OnClientLost(7);

    EXPECT_THAT(
        listening->frames(),
        ElementsAre(encode(OnReadyForProjectionSerializer(1, "a", "b", "c")),
                    encode(OnWifiVersionResponseFailureSerializer(2, "d", "e", "f", 5)),
                    encode(OnStartProjectionResponseSerializer(3, 6)),
                    encode(CanStartProjectionSerializer(4)), encode(OnWifiConnectStatusSerializer(5, 7, "g")),
                    encode(OnClientConnectedSerializer(6)), encode(OnClientLostSerializer(7))));
}

TEST_F(ControlService, ANotificationWithoutAConnectionIsLostWithALogLine) {
    service->OnClientLost(7);
    EXPECT_TRUE(log.contains("Not connected"));
}

TEST_F(ControlService, ALongAcknowledgementDoesNoHarm) {
    connectClient([](const Bytes&) { return Bytes(16384, 'x'); });
    service->OnClientLost(7);
    service->OnClientLost(8);
    EXPECT_THAT(listening->frames(), SizeIs(2));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ControlService, NotificationsFromManyThreadsGoOutOneAtATime) {
    connectClient();
    std::vector<std::future<void>> senders;
    for (std::uint8_t i = 0; i < 16; ++i) {
        senders.push_back(std::async(std::launch::async, [this, i] { service->OnClientConnected(i); }));
    }
    for (std::future<void>& sender : senders) {
        sender.get();
    }
    EXPECT_THAT(listening->frames(), SizeIs(16));
    EXPECT_THAT(log.lines(), IsEmpty());
}

/// ReqGetSecureSslKey against a controller's answer; the out-parameters hold "old" beforehand.
class KeyRequest : public ControlService {
protected:
    bool request(const Bytes& answer) {
        connectClient([answer](const Bytes&) { return answer; });
        return service->ReqGetSecureSslKey(certificate, privateKey, caCertificate);
    }

    std::string certificate = "old";
    std::string privateKey = "old";
    std::string caCertificate = "old";
};

TEST_F(KeyRequest, TheAnswersStringsAreHandedOutInOrder) {
    EXPECT_TRUE(request(encode(ResGetSecureSslKeySerializer("cert", "key", "ca"))));
    EXPECT_EQ(certificate, "cert");
    EXPECT_EQ(privateKey, "key");
    EXPECT_EQ(caCertificate, "ca");
    EXPECT_THAT(listening->frames(), ElementsAre(headerOnly(2007)));
}

TEST_F(KeyRequest, AnAnswerWithAnotherIdIsAMismatchAndChangesNothing) {
    EXPECT_FALSE(request(encode(OnReadyForProjectionSerializer(1, "a", "b", "c"))));
    EXPECT_TRUE(log.contains("[error] communicate()@WppLocalSocketClientStream("));
    EXPECT_TRUE(log.contains("MessageId mismatch."));
    EXPECT_EQ(certificate, "old");
    EXPECT_EQ(caCertificate, "old");
}

TEST_F(KeyRequest, ThreeEmptyStringsAreAnAnswer) {
    EXPECT_TRUE(request(encode(ResGetSecureSslKeySerializer("", "", ""))));
    EXPECT_EQ(certificate, "");
    EXPECT_EQ(privateKey, "");
    EXPECT_EQ(caCertificate, "");
}

TEST_F(KeyRequest, AnAnswerShorterThanItsStringsIsTrueWithEmptyStrings) {
    EXPECT_TRUE(request(headerOnly(1011)));
    EXPECT_EQ(log.count("buffer size over!"), 3U);
    EXPECT_EQ(certificate, "");
}

TEST_F(KeyRequest, TextsBeyondTheReceiveLimitArrive) {
    const std::string longText(100000, 'k');
    EXPECT_TRUE(request(encode(ResGetSecureSslKeySerializer(longText, "key", "ca"))));
    EXPECT_EQ(certificate, longText);
}

TEST_F(KeyRequest, WithoutAConnectionItIsFalseAndChangesNothing) {
    EXPECT_FALSE(service->ReqGetSecureSslKey(certificate, privateKey, caCertificate));
    EXPECT_EQ(certificate, "old");
    EXPECT_TRUE(log.contains("Not connected"));
}

TEST_F(KeyRequest, AControllerThatClosesInsteadOfAnsweringMakesItFalse) {
    connectClient([](const Bytes&) { return std::nullopt; });
    std::future<bool> result = std::async(std::launch::async, [this] {
        return service->ReqGetSecureSslKey(certificate, privateKey, caCertificate);
    });
    ASSERT_TRUE(listening->waitForFrames(1));
    listening.reset();

    EXPECT_FALSE(result.get());
    EXPECT_EQ(certificate, "old");
}

}  // namespace
