#include "private/Conversation.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "Tests/ReceiverLib/Support/EngineFixture.h"

namespace wpp_test {
namespace {

using phone_protocol::PhoneMessage;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using wifi_projection_protocol::Limits;

class Conversation : public EngineFixture {
protected:
    // The phone has been dropped, for this reason, and its transport is released.
    void expectDropped(Peer& peer, const std::string& reason) {
        EXPECT_TRUE(peer.link->waitForRelease());
        EXPECT_NE(unit->log().find(reason), std::string::npos) << unit->log();
    }
};

TEST_F(Conversation, HelloIsAnsweredWithTheSettings) {
    unit->setWifiInfo("info ", 7);
    Peer peer = connect("RFCOMM_1", TransportType::kRfcomm);
    ASSERT_TRUE(peer.phone.sayHello("phone"));

    const auto settings = peer.phone.hearSettings();

    ASSERT_TRUE(settings);
    EXPECT_EQ(settings->wifi_info_1(), "info 1");
    EXPECT_EQ(settings->wifi_info_2(), "info 2");
    EXPECT_EQ(settings->wifi_info_3(), "info 3");
    EXPECT_EQ(settings->wifi_info_4(), 7);
    EXPECT_EQ(settings->host(), "192.168.1.1");
    EXPECT_EQ(settings->port(), 30516U);
    EXPECT_EQ(settings->channel_type(), 5U);
    ASSERT_EQ(settings->channels_size(), 2);
    EXPECT_EQ(settings->channels(1), 149U);
    common::HeadUnitInfo info;
    ASSERT_TRUE(info.ParseFromString(settings->head_unit_info()));
    EXPECT_EQ(info.text_1(), "head unit");
}

TEST_F(Conversation, SettingsAreAskedAnewForEveryHello) {
    unit->setWifiInfo("old ", 1);
    introduceOnRfcomm("first", "RFCOMM_1");
    unit->setWifiInfo("new ", 2);
    Peer peer = connect("RFCOMM_2", TransportType::kRfcomm);
    ASSERT_TRUE(peer.phone.sayHello("second"));

    const auto settings = peer.phone.hearSettings();

    ASSERT_TRUE(settings);
    EXPECT_EQ(settings->wifi_info_1(), "new 1");
}

TEST_F(Conversation, TextsThatAreNoUtf8ArePassedOnAsTheyAre) {
    unit->setWifiInfo("\xFF\xFE", 1);
    Peer peer = connect("RFCOMM_1", TransportType::kRfcomm);
    ASSERT_TRUE(peer.phone.sayHello("phone \xFF"));
    const auto settings = peer.phone.hearSettings();
    ASSERT_TRUE(settings);
    EXPECT_EQ(settings->wifi_info_1(),
              "\xFF\xFE"
              "1");
    peer.phone.sayStatus(1, "\xFF");
    ASSERT_TRUE(unit->waitFor(Event::kStatus));
    EXPECT_EQ(unit->events(Event::kStatus)[0].text, "\xFF");
}

TEST_F(Conversation, SettingsTooLargeForAMessageEndTheConversation) {
    unit->setWifiInfo(std::string(40000, 'x'), 1);
    Peer peer = connect("RFCOMM_1", TransportType::kRfcomm);
    peer.phone.sayHello("phone");
    expectDropped(peer, "a message is too large to be sent");
}

TEST_F(Conversation, WifiConnectStatusIsReported) {
    Peer peer = introduceOnRfcomm("phone", "RFCOMM_1");
    peer.phone.sayStatus(3, "joined");
    ASSERT_TRUE(unit->waitFor(Event::kStatus));
    const Event event = unit->events(Event::kStatus)[0];
    EXPECT_EQ(event.client.clientId, "phone");
    EXPECT_EQ(event.value, 3U);
    EXPECT_EQ(event.text, "joined");
}

TEST_F(Conversation, WifiVersionFailureIsReportedWithTheClient) {
    Peer peer = introduceOnRfcomm("phone", "RFCOMM_1");
    peer.phone.sayVersionFailure(9);
    ASSERT_TRUE(unit->waitFor(Event::kVersionFailure));
    const Event event = unit->events(Event::kVersionFailure)[0];
    EXPECT_EQ(event.value, 9U);
    EXPECT_EQ(event.client.clientId, "phone");
    EXPECT_EQ(event.client.phoneName, "name of phone");
    EXPECT_EQ(event.client.phoneInfo.description(), "description of phone");
    EXPECT_EQ(event.client.transports.at(TransportType::kRfcomm), "RFCOMM_1");
}

TEST_F(Conversation, AcceptedWifiVersionIsNotReported) {
    Peer peer = introduceOnRfcomm("phone", "RFCOMM_1");
    peer.phone.sayVersionAccepted();
    peer.phone.sayStatus(1, "after");
    ASSERT_TRUE(unit->waitFor(Event::kStatus));
    EXPECT_EQ(unit->count(Event::kVersionFailure), 0U);
}

TEST_F(Conversation, MayIStartIsAnsweredWithWhatTheHeadUnitSays) {
    unit->setAnswer(-5);
    Peer peer = introduceOnTcp("phone", "TCP_1");
    peer.phone.askMayIStart();
    EXPECT_EQ(peer.phone.hearAnswer(), -5);
    EXPECT_EQ(unit->events(Event::kQuestion).at(0).client.clientId, "phone");
}

TEST_F(Conversation, ReadyIsReportedWithTheNamesOfBothTransports) {
    Peer rfcomm = introduceOnRfcomm("phone", "RFCOMM_1");
    Peer tcp = connect("TCP_1", TransportType::kTcp);
    ASSERT_TRUE(tcp.phone.introduce("phone"));
    tcp.phone.sayReady();
    ASSERT_TRUE(unit->waitFor(Event::kReady));
    const auto names = unit->events(Event::kReady)[0].client.transports;
    EXPECT_EQ(names.at(TransportType::kRfcomm), "RFCOMM_1");
    EXPECT_EQ(names.at(TransportType::kTcp), "TCP_1");
}

TEST_F(Conversation, StartCarriesItsReasonAndResolvesToThePhonesResult) {
    Peer peer = introduceOnTcp("phone", "TCP_1");
    auto result = start("phone", 6);
    EXPECT_EQ(peer.phone.hearStart(), 6U);
    peer.phone.sayStartResult(77);
    ASSERT_TRUE(isReady(result));
    EXPECT_EQ(result.get(), 77U);
}

TEST_F(Conversation, SecondStartEndsTheFirstWithZeroAndGetsItsOwnResult) {
    Peer peer = introduceOnTcp("phone", "TCP_1");
    auto first = start("phone", 1);
    auto second = start("phone", 2);
    ASSERT_TRUE(isReady(first));
    EXPECT_EQ(first.get(), 0U);
    EXPECT_EQ(peer.phone.hearStart(), 1U);
    EXPECT_EQ(peer.phone.hearStart(), 2U);
    peer.phone.sayStartResult(11);
    peer.phone.sayStartResult(22);
    ASSERT_TRUE(isReady(second));
    EXPECT_EQ(second.get(), 22U);
}

TEST_F(Conversation, StartThatCannotBeSentIsZeroAndDropsThePhone) {
    Peer peer = introduceOnTcp("phone", "TCP_1");
    peer.link->failWrites();
    auto result = start("phone");
    ASSERT_TRUE(isReady(result));
    EXPECT_EQ(result.get(), 0U);
    EXPECT_TRUE(unit->waitFor(Event::kLost));
}

TEST_F(Conversation, PhoneThatNeverAnswersStartIsDroppedAfterTheLimit) {
    Limits limits;
    limits.startResultTime = milliseconds(150);
    makeEngine(limits);
    Peer peer = introduceOnTcp("phone", "TCP_1");
    const auto begin = Clock::now();
    auto result = start("phone");
    ASSERT_TRUE(isReady(result));
    EXPECT_EQ(result.get(), 0U);
    EXPECT_GE(Clock::now() - begin, milliseconds(150));
    EXPECT_TRUE(unit->waitFor(Event::kLost));
}

TEST_F(Conversation, AnsweredStartLeavesNoTimeLimitBehind) {
    Limits limits;
    limits.startResultTime = milliseconds(300);
    makeEngine(limits);
    Peer idle = introduceOnTcp("idle", "TCP_1");
    auto answered = start("idle");
    idle.phone.hearStart();
    idle.phone.sayStartResult(1);
    ASSERT_TRUE(isReady(answered));
    // Another phone's limit, begun later, tells when the first one's would have been over.
    Peer silent = introduceOnTcp("silent", "TCP_2");
    auto unanswered = start("silent");
    ASSERT_TRUE(isReady(unanswered));
    EXPECT_EQ(idle.link->closeCount(), 0);
}

TEST_F(Conversation, UnknownPhoneOverTcpIsTurnedAwayWithoutAnEvent) {
    Peer peer = connect("TCP_1", TransportType::kTcp);
    peer.phone.sayHello("stranger");
    expectDropped(peer, "an unknown phone is turned away");
    EXPECT_EQ(peer.phone.hear(), std::nullopt);
    engine.reset();
    EXPECT_EQ(unit->count(Event::kLost), 0U);
}

TEST_F(Conversation, PhoneOnRfcommIsWelcomeOverTcp) {
    Peer rfcomm = introduceOnRfcomm("phone", "RFCOMM_1");
    Peer tcp = connect("TCP_1", TransportType::kTcp);
    EXPECT_TRUE(tcp.phone.introduce("phone"));
}

TEST_F(Conversation, PhoneThatTheHeadUnitKnowsIsWelcomeOverTcp) {
    unit->addKnown("phone");
    Peer tcp = connect("TCP_1", TransportType::kTcp);
    EXPECT_TRUE(tcp.phone.introduce("phone"));
}

TEST_F(Conversation, HelloThatDoesNotComeInTimeDropsThePhone) {
    Limits limits;
    limits.helloTime = milliseconds(150);
    makeEngine(limits);
    const auto begin = Clock::now();
    Peer peer = connect("RFCOMM_1", TransportType::kRfcomm);
    expectDropped(peer, "RFCOMM_1: the phone is late");
    EXPECT_GE(Clock::now() - begin, milliseconds(150));
    EXPECT_EQ(unit->count(Event::kLost), 0U);
}

TEST_F(Conversation, MessageThatIsNeverFinishedDropsThePhone) {
    Limits limits;
    limits.messageTime = milliseconds(150);
    makeEngine(limits);
    Peer peer = introduceOnTcp("phone", "TCP_1");
    const auto begin = Clock::now();
    peer.phone.sayBytes(
        std::string("\0\0\0\x05"
                    "ab",
                    6));
    expectDropped(peer, "the phone is late");
    EXPECT_GE(Clock::now() - begin, milliseconds(150));
    EXPECT_TRUE(unit->waitFor(Event::kLost));
}

TEST_F(Conversation, TricklingBytesDoNotPutOffTheEndOfAMessage) {
    Limits limits;
    limits.messageTime = milliseconds(200);
    makeEngine(limits);
    Peer peer = introduceOnTcp("phone", "TCP_1");
    const auto begin = Clock::now();
    peer.phone.sayBytes(std::string("\0\x01\0\0", 4));
    while (Clock::now() - begin < kPatience && peer.phone.sayBytes("x")) {
        std::this_thread::sleep_for(milliseconds(5));  // the pace of the trickle
    }
    EXPECT_GE(Clock::now() - begin, milliseconds(200));
    EXPECT_LT(Clock::now() - begin, kPatience / 2);
    expectDropped(peer, "the phone is late");
}

TEST_F(Conversation, MessageThatIsFinishedInTimeLeavesNoTimeLimitBehind) {
    Limits limits;
    limits.messageTime = milliseconds(300);
    makeEngine(limits);
    Peer slow = introduceOnRfcomm("slow", "RFCOMM_1");
    Peer late = introduceOnRfcomm("late", "RFCOMM_2");
    slow.phone.sayBytes(std::string("\0\0\0\x02", 4));
    ASSERT_TRUE(slow.link->waitUntilRead());
    slow.phone.sayBytes(std::string("\x1A\0", 2));
    ASSERT_TRUE(unit->waitFor(Event::kStatus));
    // Another phone's limit, begun later, tells when the first one's would have been over.
    late.phone.sayBytes(std::string("\0", 1));
    ASSERT_TRUE(late.link->waitForRelease());
    EXPECT_EQ(slow.link->closeCount(), 0);
}

TEST_F(Conversation, IdlePhoneIsNotDropped) {
    Limits limits;
    limits.helloTime = milliseconds(100);
    limits.messageTime = milliseconds(100);
    makeEngine(limits);
    Peer idle = introduceOnRfcomm("phone", "RFCOMM_1");
    Peer silent = connect("RFCOMM_2", TransportType::kRfcomm);
    ASSERT_TRUE(silent.link->waitForRelease());
    idle.phone.sayStatus(1, "still here");
    EXPECT_TRUE(unit->waitFor(Event::kStatus));
}

TEST_F(Conversation, ForbiddenLengthDropsThePhone) {
    Peer peer = introduceOnTcp("phone", "TCP_1");
    peer.phone.sayBytes(std::string("\0\x01\0\x01", 4));
    expectDropped(peer, "a message of a forbidden size");
    EXPECT_TRUE(unit->waitFor(Event::kLost));
}

TEST_F(Conversation, BytesThatAreNoMessageDropThePhone) {
    Peer peer = introduceOnTcp("phone", "TCP_1");
    peer.phone.sayBytes(std::string("\0\0\0\x02\xFF\xFF", 6));
    expectDropped(peer, "bytes that are no message");
}

TEST_F(Conversation, MessageOfAnUnknownKindDropsThePhone) {
    Peer peer = introduceOnTcp("phone", "TCP_1");
    peer.phone.sayBytes(std::string("\0\0\0\x02\x78\x01", 6));
    expectDropped(peer, "a message out of order");
}

TEST_F(Conversation, AnythingAheadOfHelloDropsThePhone) {
    Peer peer = connect("RFCOMM_1", TransportType::kRfcomm);
    peer.phone.sayStatus(1, "early");
    expectDropped(peer, "a message out of order");
    EXPECT_EQ(unit->count(Event::kStatus), 0U);
}

TEST_F(Conversation, SecondHelloDropsThePhone) {
    Peer peer = introduceOnRfcomm("phone", "RFCOMM_1");
    peer.phone.sayHello("phone");
    expectDropped(peer, "a message out of order");
}

TEST_F(Conversation, MayIStartOverRfcommDropsThePhone) {
    Peer peer = introduceOnRfcomm("phone", "RFCOMM_1");
    peer.phone.askMayIStart();
    expectDropped(peer, "a message out of order");
    EXPECT_EQ(unit->count(Event::kQuestion), 0U);
}

TEST_F(Conversation, ReadyOverRfcommDropsThePhone) {
    Peer peer = introduceOnRfcomm("phone", "RFCOMM_1");
    peer.phone.sayReady();
    expectDropped(peer, "a message out of order");
    EXPECT_EQ(unit->count(Event::kReady), 0U);
}

TEST_F(Conversation, StartResultThatNobodyAskedForDropsThePhone) {
    Peer peer = introduceOnTcp("phone", "TCP_1");
    peer.phone.sayStartResult(1);
    expectDropped(peer, "a result that was not asked for");
}

TEST_F(Conversation, LongestClientIdIsWelcome) {
    Peer peer = connect("RFCOMM_1", TransportType::kRfcomm);
    EXPECT_TRUE(peer.phone.introduce(std::string(256, 'x')));
}

TEST_F(Conversation, ClientIdThatIsTooLongDropsThePhone) {
    Peer peer = connect("RFCOMM_1", TransportType::kRfcomm);
    peer.phone.sayHello(std::string(257, 'x'));
    expectDropped(peer, "a text of a forbidden size");
}

TEST_F(Conversation, EmptyClientIdDropsThePhone) {
    Peer peer = connect("RFCOMM_1", TransportType::kRfcomm);
    peer.phone.sayHello("");
    expectDropped(peer, "a text of a forbidden size");
}

TEST_F(Conversation, PhoneNameThatIsTooLongDropsThePhone) {
    PhoneMessage message;
    message.mutable_hello()->set_client_id("phone");
    message.mutable_hello()->set_phone_name(std::string(4097, 'x'));
    Peer peer = connect("RFCOMM_1", TransportType::kRfcomm);
    peer.phone.say(message);
    expectDropped(peer, "a text of a forbidden size");
}

TEST_F(Conversation, DescriptionThatIsTooLongDropsThePhone) {
    PhoneMessage message;
    message.mutable_hello()->set_client_id("phone");
    message.mutable_hello()->set_description(std::string(4097, 'x'));
    Peer peer = connect("RFCOMM_1", TransportType::kRfcomm);
    peer.phone.say(message);
    expectDropped(peer, "a text of a forbidden size");
}

TEST_F(Conversation, StatusTextThatIsTooLongDropsThePhone) {
    Peer peer = introduceOnRfcomm("phone", "RFCOMM_1");
    peer.phone.sayStatus(1, std::string(4097, 'x'));
    expectDropped(peer, "a text of a forbidden size");
    EXPECT_EQ(unit->count(Event::kStatus), 0U);
}

TEST_F(Conversation, ExceptionInACallbackEndsOnlyThatConversation) {
    unit->setReaction([](const Event& event) {
        if (event.kind == Event::kStatus) {
            throw std::runtime_error("callback failed");
        }
    });
    Peer unlucky = introduceOnRfcomm("unlucky", "RFCOMM_1");
    unlucky.phone.sayStatus(1, "");
    expectDropped(unlucky, "callback failed");
    Peer other = connect("RFCOMM_2", TransportType::kRfcomm);
    EXPECT_TRUE(other.phone.introduce("other"));
}

TEST_F(Conversation, ExceptionWhileReportingALossDoesNotKeepThePhoneFromComingAgain) {
    unit->setReaction([](const Event& event) {
        if (event.kind == Event::kLost) {
            throw std::runtime_error("callback failed");
        }
    });
    introduceOnTcp("phone", "TCP_1").link->close();
    ASSERT_TRUE(unit->waitFor(Event::kLost));
    Peer again = connect("TCP_2", TransportType::kTcp);
    EXPECT_TRUE(again.phone.introduce("phone"));
}

}  // namespace
}  // namespace wpp_test
