// The process from outside: the built program between peers that the test plays.

#include "Core/WppReceiver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "Pattern/QMSingleton.h"
#include "Proxy/QmcWirelessProjectionBtProxy.h"
#include "Tests/WppReceiver/Process/HeadUnit.h"

namespace {

using namespace wifi_projection_protocol;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using wpp_test::encode;
using wpp_test::FramedListener;
using wpp_test::FramedPeer;
using wpp_test::headerOnly;
using wpp_test::HeadUnit;
using wpp_test::ReceiverProcess;
using wpp_test::Stopwatch;
using wpp_test::TemporaryDirectory;
using wpp_test::TestPhone;
using wpp_test::waitUntil;

const std::string kHandled(1, '\1');
const std::string kNotHandled(1, '\0');

TEST(WppReceiverProcess, ItLinksTheReceiverLibraryByItsName) {
    HeadUnit headUnit;
    EXPECT_THAT(headUnit.process().mappedLibrary("libreceiver-lib-4.2.so"),
                testing::EndsWith("/libreceiver-lib-4.2.so"));
}

TEST(WppReceiverProcess, ItMayOpenAsManyDescriptorsAsTheSystemLetsIt) {
    TemporaryDirectory directory;
    rlimit own{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &own), 0);
    const rlimit fewer{own.rlim_max - 1, own.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &fewer), 0);
    ReceiverProcess receiver(directory.path());
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &own), 0);
    EXPECT_TRUE(waitUntil([&] {
        rlimit its{};
        return prlimit(receiver.pid(), RLIMIT_NOFILE, nullptr, &its) == 0 && its.rlim_cur == own.rlim_max;
    }));
}

TEST(WppReceiverProcess, TerminateBeforeAnyStartIsAnsweredWithOneAndEndsWithStatusZero) {
    HeadUnit headUnit;
    ASSERT_TRUE(waitUntil([&] { return headUnit.command(headerOnly(999)) == kNotHandled; }));
    EXPECT_THAT(headUnit.command(headerOnly(1)), Optional(kHandled));
    EXPECT_THAT(headUnit.process().waitForExit(), Optional(0));
}

TEST(WppReceiverProcess, CommandsAreHandledWhileThePeersDoNotListenYet) {
    HeadUnit headUnit(HeadUnit::Peers::kAbsent);
    EXPECT_THAT(headUnit.command(encode(RfcommConnectedSerializer(3))), Optional(kNotHandled));
    EXPECT_EQ(headUnit.process().countOutput("WPP has not started."), 1U);

    headUnit.listen();
    EXPECT_THAT(headUnit.terminate(), Optional(0));
}

TEST(WppReceiverProcess, ANotificationBeforeTheControllerListensIsLostWithALogLine) {
    HeadUnit headUnit(HeadUnit::Peers::kAbsent);
    headUnit.start(HeadUnit::Tls::kRequested);
    const FileDescriptor phone = HeadUnit::connectTcp("127.0.0.1");

    EXPECT_TRUE(headUnit.process().waitForOutput("Not connected"));
    headUnit.listen();
    EXPECT_THAT(headUnit.terminate(), Optional(0));
    EXPECT_THAT(headUnit.controllerSide().frames(), IsEmpty());
}

TEST(WppReceiverProcess, TheServersListenBeforeTheClientsConnectInTheFixedOrder) {
    HeadUnit headUnit(HeadUnit::Peers::kAbsent);
    const FramedPeer bluetooth = FramedPeer::connectTo("WPP_SOCKET_FROM_BT");
    EXPECT_TRUE(bluetooth.isConnected());

    // The Bluetooth process listens, but its stream is opened only after the controller's.
    wpp_test::AnsweringPeer bluetoothSide("WPP_SOCKET_TO_BT");
    wpp_test::FramedListener controllerSide("WPP_SOCKET_FROM_WPP");
    EXPECT_TRUE(controllerSide.accept().isConnected());
    EXPECT_THAT(headUnit.terminate(), Optional(0));
}

TEST(WppReceiverProcess, ASocketFileLeftBehindIsLoggedAndTheProcessGoesOn) {
    wpp_test::TemporaryDirectory directory;
    directory.enter();
    wpp_test::FramedListener leftBehind("WPP_SOCKET_FROM_BT");
    wpp_test::AnsweringPeer controllerSide("WPP_SOCKET_FROM_WPP");
    wpp_test::AnsweringPeer bluetoothSide("WPP_SOCKET_TO_BT");
    wpp_test::ReceiverProcess receiver(directory.path());
    FramedPeer commands = FramedPeer::connectTo("WPP_SOCKET_TO_WPP");

    EXPECT_TRUE(receiver.waitForOutput("bind err::WPP_SOCKET_FROM_BT  err_no[1] "));
    commands.sendFrame(headerOnly(1));
    EXPECT_THAT(receiver.waitForExit(), Optional(0));
}

TEST(WppReceiverProcess, EveryLineNamesTheProcess) {
    HeadUnit headUnit;
    headUnit.command(headerOnly(999));
    EXPECT_THAT(headUnit.process().output(),
                testing::ContainsRegex(
                    "\\[error\\] onReceivedServerSocket\\(\\)@QmcWirelessProjectionService\\([0-9]+\\) "
                    "\\{WppReceiver\\} : \\*\\*\\* unknown message! \\*\\*\\* messageId\\[999\\] \n"));
}

TEST(WppReceiverProcess, LogLinesOfAProcessWithoutStandardDescriptorsReachNoneOfItsOwn) {
    TemporaryDirectory directory;
    directory.enter();
    const FramedListener controller("WPP_SOCKET_FROM_WPP");
    const FramedListener bluetooth("WPP_SOCKET_TO_BT");
    ReceiverProcess receiver(directory.path(), ReceiverProcess::Standard::kClosed);
    FramedPeer commands = FramedPeer::connectTo("WPP_SOCKET_TO_WPP");
    for (int logged = 0; logged < 10; ++logged) {
        ASSERT_TRUE(commands.sendFrame(headerOnly(999)));
        ASSERT_EQ(commands.receiveFrame(), kNotHandled);
    }
    ASSERT_TRUE(commands.sendFrame(headerOnly(1)));
    EXPECT_EQ(commands.receiveFrame(), kHandled);
    EXPECT_THAT(receiver.waitForExit(), Optional(0));
}

TEST(WppReceiver, DestructionLeavesTheBluetoothProxyAlone) {
    QmcWirelessProjectionBtProxy* proxy = QmcWirelessProjectionBtProxy::getInstance();
    { const WppReceiver receiver; }

    EXPECT_EQ(QmcWirelessProjectionBtProxy::getInstance(), proxy);
    EXPECT_EQ(proxy->NotifyObservers(0, nullptr, 0, 0), 0U);
    qm_DestroySingletons();
}

/// What a peer may do to a stream; the receiver must answer the next command as if nothing had been.
class MisbehavingPeer : public testing::Test {
protected:
    void expectServed() {
        EXPECT_THAT(headUnit.command(headerOnly(1001)), Optional(kHandled));
        EXPECT_TRUE(headUnit.process().isAlive());
    }

    HeadUnit headUnit;
    FramedPeer peer = FramedPeer::connectTo("WPP_SOCKET_TO_WPP");
};

TEST_F(MisbehavingPeer, AZeroLengthFrameIsLoggedAndNotAnswered) {
    peer.sendBytes(wpp_test::framePrefix(0));
    EXPECT_TRUE(headUnit.process().waitForOutput("no data::recv size[0]"));
    expectServed();
}

TEST_F(MisbehavingPeer, AFrameOf100000BytesIsReceivedWhole) {
    peer.sendFrame(headerOnly(999) + std::string(99996, 'x'));
    EXPECT_THAT(peer.receiveFrame(), Optional(kNotHandled));
    expectServed();
}

TEST_F(MisbehavingPeer, APeerThatDiesInThePayloadIsLogged) {
    peer.sendBytes(wpp_test::framePrefix(100) + "only this");
    peer.close();
    EXPECT_TRUE(headUnit.process().waitForOutput("recv: error\n"));
    expectServed();
}

TEST_F(MisbehavingPeer, APeerThatDiesInTheLengthIsLogged) {
    peer.sendBytes("ab");
    peer.close();
    EXPECT_TRUE(headUnit.process().waitForOutput("recv: error for data length\n"));
    expectServed();
}

TEST_F(MisbehavingPeer, AFrameInSingleBytesIsOneCommand) {
    peer.sendByteByByte(wpp_test::frameOf(headerOnly(1001)));
    EXPECT_THAT(peer.receiveFrame(), Optional(kHandled));
    expectServed();
}

TEST_F(MisbehavingPeer, ManyFramesInOneSendAreAnsweredOneByOne) {
    std::string bytes;
    for (int i = 0; i < 100; ++i) {
        bytes += wpp_test::frameOf(headerOnly(i % 2 == 0 ? 1001 : 999));
    }
    peer.sendBytes(bytes);
    for (int i = 0; i < 100; ++i) {
        EXPECT_THAT(peer.receiveFrame(), Optional(i % 2 == 0 ? kHandled : kNotHandled));
    }
}

TEST_F(MisbehavingPeer, EveryPrefixOfEveryCommandIsSurvived) {
    headUnit.start();
    const std::vector<std::string> commands = {
        encode(SetProjectionPortInfoSerializer("127.0.0.1", 30516)),
        encode(SetWifiInfoSerializer("a", "b", "c", 4)),
        encode(AddDeviceInfoSerializer(3, "info", "phone")),
        encode(ReplyCanStartProjectionSerializer(3, 1)),
        encode(StopProjectionStartSerializer(3)),
    };
    for (const std::string& whole : commands) {
        for (std::size_t size = 4; size < whole.size(); ++size) {
            EXPECT_THAT(headUnit.command(whole.substr(0, size)), Optional(kHandled));
        }
    }
    expectServed();
}

TEST_F(MisbehavingPeer, AnAnnouncedLengthThatCannotBeHadDoesNotEndTheProcess) {
    peer.sendBytes(wpp_test::framePrefix(0xFFFFFFFF) + "x");
    peer.close();
    expectServed();
}

TEST_F(MisbehavingPeer, APeerThatClosesBeforeItsReplyDoesNotEndTheProcess) {
    for (int i = 0; i < 50; ++i) {
        FramedPeer hasty = FramedPeer::connectTo("WPP_SOCKET_TO_WPP");
        hasty.sendFrame(headerOnly(999));
        hasty.close();
    }
    expectServed();
}

TEST_F(MisbehavingPeer, RubbishFromTheBluetoothProcessIsSurvived) {
    headUnit.start();
    const auto channel = headUnit.connectRfcomm(3, "phone");
    for (const std::string& rubbish :
         {std::string("x"), headerOnly(4000), headerOnly(3000), headerOnly(4000) + std::string(20, '\xFF')}) {
        FramedPeer process = FramedPeer::connectTo("WPP_SOCKET_FROM_BT");
        process.sendFrame(rubbish);
        EXPECT_TRUE(process.receiveFrame());
    }
    EXPECT_TRUE(TestPhone(channel).introduce("phone"));
    expectServed();
}

TEST(WppReceiverProcess, FiveHundredConnectionsThatComeAndGoLeaveNothingBehind) {
    HeadUnit headUnit;
    headUnit.start();
    HeadUnit::connectTcp("127.0.0.1");
    ASSERT_NE(headUnit.bringUp(1, "phone", "127.0.0.2"), nullptr);
    EXPECT_THAT(headUnit.command(headerOnly(1001)), Optional(kHandled));
    headUnit.start();
    const std::size_t descriptors = headUnit.process().settledDescriptors();
    const std::size_t threads = headUnit.process().threads();

    for (int i = 0; i < 500; ++i) {
        FramedPeer control = FramedPeer::connectTo("WPP_SOCKET_TO_WPP");
        const FramedPeer bluetooth = FramedPeer::connectTo("WPP_SOCKET_FROM_BT");
        const FileDescriptor phone = HeadUnit::connectTcp("127.0.0.3");
        control.sendFrame(headerOnly(999));
        EXPECT_THAT(control.receiveFrame(), Optional(kNotHandled));
    }
    EXPECT_TRUE(waitUntil([&] { return headUnit.process().descriptors() == descriptors; }, 30000ms))
        << headUnit.process().descriptors() << " descriptors, before " << descriptors;
    EXPECT_TRUE(waitUntil([&] { return headUnit.process().threads() == threads; }, 30000ms))
        << headUnit.process().threads() << " threads, before " << threads;
    EXPECT_THAT(headUnit.terminate(), Optional(0));
}

TEST(WppReceiverProcess, TwoHundredRoundsOfStartAndStopWithPhonesAttachedLeaveNothingBehind) {
    HeadUnit headUnit;
    const auto round = [&headUnit](bool withTcp) {
        headUnit.start();
        const auto first = headUnit.connectRfcomm(1, "one");
        const auto second = headUnit.connectRfcomm(2, "two");
        EXPECT_TRUE(TestPhone(first).introduce("one"));
        const auto tls = withTcp ? headUnit.connectTls("127.0.0.2") : nullptr;
        if (withTcp) {
            ASSERT_NE(tls, nullptr);
            EXPECT_TRUE(TestPhone(tls).introduce("one"));
        }
        EXPECT_THAT(headUnit.command(headerOnly(1001)), Optional(kHandled));
    };
    round(true);
    const std::size_t descriptors = headUnit.process().settledDescriptors();
    const std::size_t threads = headUnit.process().threads();
    for (int i = 0; i < 200; ++i) {
        round(i % 4 == 0);
    }
    // The Bluetooth side's connections of the rounds are closed by now; the receiver sees that within a pass.
    EXPECT_TRUE(waitUntil([&] { return headUnit.process().descriptors() == descriptors; }));
    EXPECT_EQ(headUnit.process().threads(), threads);
    EXPECT_THAT(headUnit.terminate(), Optional(0));
}

/// Command 1 in the middle of something: the process ends with status 0 and waits out none of the limits that
/// the phones have, of which that of a handshake, 5 s, is the shortest.
class Termination : public testing::Test {
protected:
    void expectPromptEnd() {
        const Stopwatch watch;
        EXPECT_THAT(headUnit.terminate(), Optional(0));
        EXPECT_LT(watch.elapsed(), 5000ms);
    }

    HeadUnit headUnit;
};

TEST_F(Termination, WhileAStartIsPending) {
    headUnit.start();
    const auto tls = headUnit.bringUp(3, "phone", "127.0.0.3");
    ASSERT_NE(tls, nullptr);
    headUnit.command(encode(StartProjectionSerializer(3, wifi_discovery::StartRequestReason{1})));
    ASSERT_TRUE(TestPhone(tls).hearStart());

    expectPromptEnd();
    EXPECT_EQ(headUnit.notifications(OnStartProjectionResponseSerializer::kMessageId), 1U);
    EXPECT_EQ(headUnit.process().countOutput("StartProjection timeout. BtDeviceId=3"), 1U);
}

TEST_F(Termination, WhileAQuestionIsOpen) {
    headUnit.start();
    const auto tls = headUnit.bringUp(3, "phone", "127.0.0.3");
    ASSERT_NE(tls, nullptr);
    ASSERT_TRUE(TestPhone(tls).askMayIStart());
    ASSERT_TRUE(headUnit.waitForNotification(CanStartProjectionSerializer::kMessageId));

    expectPromptEnd();
}

TEST_F(Termination, WhilePhonesAreInTheirHandshake) {
    headUnit.start();
    const FileDescriptor silent = HeadUnit::connectTcp("127.0.0.4");
    const FileDescriptor halfway = HeadUnit::connectTcp("127.0.0.5");
    const std::string firstHalf("\x16\x03\x01\x02\x00\x01", 6);
    ASSERT_EQ(send(halfway.get(), firstHalf.data(), firstHalf.size(), MSG_NOSIGNAL), 6);
    const auto rfcomm = headUnit.connectRfcomm(3, "phone");

    expectPromptEnd();
    EXPECT_EQ(headUnit.bluetoothSide().ids().back(), 3001);
}

TEST_F(Termination, WhileAStartIsPendingAQuestionIsOpenAndAPhoneIsInItsHandshake) {
    headUnit.start();
    const auto starting = headUnit.bringUp(3, "starting", "127.0.0.3");
    const auto asking = headUnit.bringUp(4, "asking", "127.0.0.4");
    ASSERT_TRUE(starting != nullptr && asking != nullptr);
    const FileDescriptor silent = HeadUnit::connectTcp("127.0.0.5");
    headUnit.command(encode(StartProjectionSerializer(3, wifi_discovery::StartRequestReason{1})));
    ASSERT_TRUE(TestPhone(starting).hearStart());
    ASSERT_TRUE(TestPhone(asking).askMayIStart());
    ASSERT_TRUE(headUnit.waitForNotification(CanStartProjectionSerializer::kMessageId));

    expectPromptEnd();
}

/// Strangers at port 30516.
class Strangers : public testing::Test {
protected:
    using Descriptor = FileDescriptor;

    static Descriptor connectAndSend(const std::string& address, const std::string& bytes) {
        Descriptor result = HeadUnit::connectTcp(address);
        send(result.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        return result;
    }

    std::shared_ptr<wpp_test::TlsPhone> connectWith(const std::string& address,
                                                    wpp_test::TlsPhoneOptions options) {
        auto phone = std::make_shared<wpp_test::TlsPhone>(HeadUnit::connectTcp(address), options);
        phone->handshake();
        return phone;
    }

    /// Reads until the receiver has closed. @return whether it did within the limit.
    static bool isDropped(const Descriptor& connection) {
        char byte = 0;
        return waitUntil(
            [&] {
                const ssize_t count = recv(connection.get(), &byte, 1, MSG_DONTWAIT);
                return count == 0 || (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK);
            },
            20000ms);
    }

    HeadUnit headUnit;
};

TEST_F(Strangers, AreDroppedWithinTheLimitWhileAnHonestPhoneIsServedAndNobodyHearsOfThem) {
    headUnit.start();
    const simulator::CertificateAuthority foreign("foreign authority");
    const Stopwatch watch;
    const Descriptor silent = HeadUnit::connectTcp("127.0.1.1");
    const Descriptor plain = connectAndSend("127.0.1.2", "GET / HTTP/1.1\r\nHost: head-unit\r\n\r\n");
    const Descriptor halfway = connectAndSend("127.0.1.3", std::string("\x16\x03\x01\x02\x00\x01\x00", 7));
    const auto foreignPhone =
        connectWith("127.0.1.4", {foreign.issue("phone", simulator::Usage::kClient), "", 0});
    const auto anonymous = connectWith("127.0.1.5", {std::nullopt, "", 0});

    const auto honest = headUnit.bringUp(3, "honest", "127.0.1.6");
    EXPECT_NE(honest, nullptr);
    EXPECT_LT(watch.elapsed(), 5000ms);

    EXPECT_EQ(foreignPhone->receive(), "");
    EXPECT_EQ(anonymous->receive(), "");
    EXPECT_TRUE(isDropped(plain));
    EXPECT_TRUE(isDropped(silent));
    EXPECT_TRUE(isDropped(halfway));
    EXPECT_GE(watch.elapsed(), 4500ms);
    EXPECT_LT(watch.elapsed(), 20000ms);
    EXPECT_THAT(headUnit.controllerSide().ids(), ElementsAre(OnReadyForProjectionSerializer::kMessageId,
                                                             OnClientConnectedSerializer::kMessageId));
}

TEST_F(Strangers, APhoneWithoutARecordIsDroppedEvenWithAGoodCertificate) {
    headUnit.start();
    const auto phone = headUnit.connectTls("127.0.1.7");
    ASSERT_NE(phone, nullptr);
    TestPhone(phone).sayHello("nobody announced me");

    EXPECT_EQ(phone->receive(), "");
    EXPECT_THAT(headUnit.controllerSide().ids(), IsEmpty());
}

TEST_F(Strangers, TlsMaterialThatIsNotThereTurnsEveryPhoneAway) {
    headUnit.command(headerOnly(1001));
    FramedPeer commands = FramedPeer::connectTo("WPP_SOCKET_TO_WPP");
    commands.sendFrame(encode(StartWifiProjectionProtocolSerializer(wifi_discovery::WifiChannelType{1}, {},
                                                                    common::HeadUnitInfo(), "no certificate",
                                                                    "no key", "no ca")));
    const Descriptor phone = HeadUnit::connectTcp("127.0.1.8");

    EXPECT_TRUE(isDropped(phone));
    EXPECT_THAT(headUnit.controllerSide().ids(), IsEmpty());
}

/// One phone on its road, seen from the controller.
class Road : public testing::Test {
protected:
    HeadUnit headUnit;
};

TEST_F(Road, WifiStatusAndVersionFailureReachTheController) {
    headUnit.start();
    const auto rfcomm = headUnit.connectRfcomm(3, "phone");
    TestPhone phone(rfcomm);
    ASSERT_TRUE(phone.introduce("phone"));
    ASSERT_TRUE(phone.sayStatus(5, "joined"));
    ASSERT_TRUE(headUnit.waitForNotification(2004));
    ASSERT_TRUE(phone.sayVersionFailure(9));
    ASSERT_TRUE(headUnit.waitForNotification(2001));

    EXPECT_THAT(headUnit.controllerSide().frames(),
                ElementsAre(encode(OnWifiConnectStatusSerializer(3, 5, "joined")),
                            encode(OnWifiVersionResponseFailureSerializer(3, "phone", "name of phone",
                                                                          "description of phone", 9))));
}

TEST_F(Road, ThePhoneIsToldTheSettingsThatTheControllerSent) {
    headUnit.start();
    TestPhone phone(headUnit.connectRfcomm(3, "phone"));
    ASSERT_TRUE(phone.sayHello("phone"));
    const auto settings = phone.hearSettings();

    ASSERT_TRUE(settings);
    EXPECT_EQ(settings->wifi_info_1(), "network");
    EXPECT_EQ(settings->wifi_info_2(), "passphrase");
    EXPECT_EQ(settings->wifi_info_3(), "address");
    EXPECT_EQ(settings->wifi_info_4(), 36);
    EXPECT_EQ(settings->host(), "127.0.0.1");
    EXPECT_EQ(settings->port(), 30516U);
    EXPECT_THAT(settings->channels(), ElementsAre(36, 40));
}

TEST_F(Road, TheKeyIsFetchedOnceForAllPhones) {
    headUnit.start(HeadUnit::Tls::kRequested);
    EXPECT_NE(headUnit.bringUp(3, "one", "127.0.0.3"), nullptr);
    EXPECT_NE(headUnit.bringUp(4, "two", "127.0.0.4"), nullptr);
    EXPECT_EQ(headUnit.notifications(ReqGetSecureSslKeySerializer::kMessageId), 1U);
}

TEST_F(Road, TheControllersAnswerReachesThePhone) {
    headUnit.start();
    const auto tls = headUnit.bringUp(3, "phone", "127.0.0.3");
    ASSERT_NE(tls, nullptr);
    TestPhone phone(tls);
    ASSERT_TRUE(phone.askMayIStart());
    ASSERT_TRUE(headUnit.waitForNotification(CanStartProjectionSerializer::kMessageId));
    EXPECT_THAT(headUnit.command(encode(ReplyCanStartProjectionSerializer(3, 42))), Optional(kHandled));
    EXPECT_THAT(phone.hearAnswer(), Optional(42));
}

TEST_F(Road, AControllerThatDoesNotAnswerGivesThePhoneMinusFive) {
    headUnit.start();
    const auto tls = headUnit.bringUp(3, "phone", "127.0.0.3");
    ASSERT_NE(tls, nullptr);
    TestPhone phone(tls);
    ASSERT_TRUE(phone.askMayIStart());
    EXPECT_THAT(phone.hearAnswer(), Optional(-5));
    EXPECT_EQ(headUnit.process().countOutput("CanStartProjection()@QmcWifiProjectionProtocolCallbackImpl("),
              1U);
}

TEST_F(Road, AStartAndItsResult) {
    headUnit.start();
    const auto tls = headUnit.bringUp(3, "phone", "127.0.0.3");
    ASSERT_NE(tls, nullptr);
    TestPhone phone(tls);
    headUnit.command(encode(StartProjectionSerializer(3, wifi_discovery::StartRequestReason{77})));
    EXPECT_THAT(phone.hearStart(), Optional(77U));
    ASSERT_TRUE(phone.sayStartResult(11));
    ASSERT_TRUE(headUnit.waitForNotification(2002));
    EXPECT_EQ(headUnit.controllerSide().frames().back(), encode(OnStartProjectionResponseSerializer(3, 11)));
}

TEST_F(Road, AStopOfAStartDisconnectsThePhoneWithOneDisconnectSpp) {
    headUnit.start();
    const auto tls = headUnit.bringUp(3, "phone", "127.0.0.3");
    ASSERT_NE(tls, nullptr);
    headUnit.command(encode(StartProjectionSerializer(3, wifi_discovery::StartRequestReason{1})));
    ASSERT_TRUE(TestPhone(tls).hearStart());
    const Stopwatch watch;
    EXPECT_THAT(headUnit.command(encode(StopProjectionStartSerializer(3))), Optional(kHandled));

    EXPECT_LT(watch.elapsed(), 5000ms);
    EXPECT_EQ(headUnit.notifications(2002), 1U);
    EXPECT_EQ(tls->receive(), "");
    ASSERT_TRUE(headUnit.bluetoothSide().waitForId(3001));
    EXPECT_NE(headUnit.bringUp(3, "phone", "127.0.0.3"), nullptr);
    const auto ids = headUnit.bluetoothSide().ids();
    EXPECT_EQ(std::count(ids.begin(), ids.end(), 3001), 1);
}

TEST_F(Road, APhoneThatClosesIsReportedLostOnce) {
    headUnit.start();
    auto tls = headUnit.bringUp(3, "phone", "127.0.0.3");
    ASSERT_NE(tls, nullptr);
    tls->close();
    ASSERT_TRUE(headUnit.waitForNotification(2006));
    headUnit.command(encode(RfcommDisconnectedSerializer(3)));
    EXPECT_THAT(headUnit.terminate(), Optional(0));
    EXPECT_EQ(headUnit.notifications(2006), 1U);
}

TEST_F(Road, DeletingTheDeviceDisconnectsItsTcpClient) {
    headUnit.start();
    const auto tls = headUnit.bringUp(3, "phone", "127.0.0.3");
    ASSERT_NE(tls, nullptr);
    EXPECT_THAT(headUnit.command(encode(DeleteDeviceInfoSerializer(3))), Optional(kHandled));
    EXPECT_EQ(tls->receive(), "");
}

TEST_F(Road, ThirtyPhonesAreServedAtOnce) {
    headUnit.start();
    std::vector<std::shared_ptr<wpp_test::TlsPhone>> phones;
    for (std::uint8_t id = 1; id <= 30; ++id) {
        phones.push_back(
            headUnit.bringUp(id, "phone " + std::to_string(id), "127.0.2." + std::to_string(id)));
        ASSERT_NE(phones.back(), nullptr) << "phone " << int{id};
    }
    EXPECT_EQ(headUnit.notifications(2005), 30U);
    EXPECT_EQ(headUnit.notifications(2006), 0U);
    EXPECT_THAT(headUnit.terminate(), Optional(0));
}

}  // namespace
