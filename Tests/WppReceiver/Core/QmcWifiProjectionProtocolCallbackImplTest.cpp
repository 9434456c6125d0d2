#include "Core/QmcWifiProjectionProtocolCallbackImpl.h"

#include <gmock/gmock.h>

#include "Tests/WppReceiver/Support/ProtocolFixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using wpp_test::makeClient;
using wpp_test::Stopwatch;
using namespace std::chrono_literals;

class QmcWifiProjectionProtocolCallbackImpl : public wpp_test::ProtocolFixture {
protected:
    QmcWifiProjectionProtocolCallbackImpl() { makeOwner(); }

    auto* callback() { return library.callback(); }
};

TEST_F(QmcWifiProjectionProtocolCallbackImpl, AQuestionForAClientWithoutARecordIsMinusFiveWithoutAnyMessage) {
    EXPECT_EQ(callback()->canStartProjection(makeClient("stranger", {})), -5);
    EXPECT_THAT(controller.calls(), IsEmpty());
    EXPECT_FALSE(log.contains("timeout."));
}

TEST_F(QmcWifiProjectionProtocolCallbackImpl, AControllerThatNeverAnswersGivesMinusFiveAfterOneSecond) {
    owner->addDeviceInfo(3, "info", "phone");
    const Stopwatch watch;

    EXPECT_EQ(callback()->canStartProjection(makeClient("phone", {})), -5);

    EXPECT_GE(watch.elapsed(), 1000ms);
    EXPECT_LT(watch.elapsed(), 8000ms);
    EXPECT_THAT(controller.calls(), ElementsAre("CanStartProjection(3)"));
    EXPECT_TRUE(log.contains("[error] CanStartProjection()@QmcWifiProjectionProtocolCallbackImpl("));
    EXPECT_EQ(log.count("timeout."), 1U);
}

TEST_F(QmcWifiProjectionProtocolCallbackImpl, TheControllersAnswerIsReturnedToTheLibrary) {
    owner->addDeviceInfo(3, "info", "phone");
    controller.onQuestion([this] { owner->replyCanStartProjection(3, 17); });

    EXPECT_EQ(callback()->canStartProjection(makeClient("phone", {})), 17);
    EXPECT_FALSE(log.contains("timeout."));
}

TEST_F(QmcWifiProjectionProtocolCallbackImpl, AnAnswerThatNamesAnotherDeviceIsTaken) {
    owner->addDeviceInfo(3, "info", "phone");
    controller.onQuestion([this] { owner->replyCanStartProjection(99, 1); });

    EXPECT_EQ(callback()->canStartProjection(makeClient("phone", {})), 1);
}

TEST_F(QmcWifiProjectionProtocolCallbackImpl, AnAnswerThatCameTooLateIsNotTakenForTheNextQuestion) {
    owner->addDeviceInfo(3, "info", "phone");
    owner->replyCanStartProjection(3, 17);
    owner->replyCanStartProjection(3, 18);

    EXPECT_EQ(callback()->canStartProjection(makeClient("phone", {})), -5);
    EXPECT_EQ(log.count("timeout."), 1U);
}

TEST_F(QmcWifiProjectionProtocolCallbackImpl, AReadyClientIsReportedReadyAndThenConnected) {
    owner->addDeviceInfo(3, "info", "phone");
    callback()->onReadyForProjection(makeClient("phone", {}));

    EXPECT_THAT(controller.calls(),
                ElementsAre("OnReadyForProjection(3, phone, name of phone, description of phone)",
                            "OnClientConnected(3)"));
}

TEST_F(QmcWifiProjectionProtocolCallbackImpl, AReadyClientIsFoundByItsRfcommName) {
    owner->addDeviceInfo(3, "info", "unknown to the library");
    callback()->onReadyForProjection(
        makeClient("phone", {{TransportType::kRfcomm, "RFCOMM_3"}, {TransportType::kTcp, "TCP_10.0.0.3"}}));

    EXPECT_EQ(controller.calls().size(), 2U);
    EXPECT_EQ(owner->deviceRecords().clientIdOf(3), "phone");
    EXPECT_EQ(owner->deviceRecords().transportsOf(3).at(TransportType::kTcp), "TCP_10.0.0.3");
}

TEST_F(QmcWifiProjectionProtocolCallbackImpl, AWifiVersionFailureUpdatesTheRecordAndIsReported) {
    owner->addDeviceInfo(4, "info", "");
    callback()->onWifiVersionResponseFailure(makeClient("phone", {{TransportType::kRfcomm, "RFCOMM_4"}}), 77);

    EXPECT_THAT(
        controller.calls(),
        ElementsAre("OnWifiVersionResponseFailure(4, phone, name of phone, description of phone, 77)"));
    EXPECT_EQ(owner->deviceRecords().idOf("phone"), 4);
}

TEST_F(QmcWifiProjectionProtocolCallbackImpl, AWifiStatusOfAKnownClientIsReported) {
    owner->addDeviceInfo(4, "info", "phone");
    callback()->onWifiConnectStatus("phone", 2, "joined");

    EXPECT_THAT(controller.calls(), ElementsAre("OnWifiConnectStatus(4, 2, joined)"));
}

TEST_F(QmcWifiProjectionProtocolCallbackImpl, ALostClientIsReportedButItsRecordStays) {
    owner->addDeviceInfo(4, "info", "phone");
    callback()->onClientLost(makeClient("phone", {}));

    EXPECT_THAT(controller.calls(), ElementsAre("OnClientLost(4)"));
    EXPECT_TRUE(callback()->isClientKnown("phone"));
}

TEST_F(QmcWifiProjectionProtocolCallbackImpl, EventsOfAnUnknownClientSendNothing) {
    owner->addDeviceInfo(4, "info", "phone");
    callback()->onClientLost(makeClient("stranger", {}));
    callback()->onWifiConnectStatus("stranger", 1, "");
    callback()->onReadyForProjection(makeClient("stranger", {{TransportType::kRfcomm, "RFCOMM_5"}}));
    callback()->onWifiVersionResponseFailure(makeClient("stranger", {}), 1);

    EXPECT_THAT(controller.calls(), IsEmpty());
}

TEST_F(QmcWifiProjectionProtocolCallbackImpl, OnlyAClientWithARecordIsKnown) {
    owner->addDeviceInfo(4, "info", "phone");

    EXPECT_TRUE(callback()->isClientKnown("phone"));
    EXPECT_FALSE(callback()->isClientKnown("stranger"));
    owner->deleteDeviceInfo(4);
    EXPECT_FALSE(callback()->isClientKnown("phone"));
}

}  // namespace
