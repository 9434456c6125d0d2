#include "Core/QmcStartProjection.h"

#include <gmock/gmock.h>

#include "Tests/WppReceiver/Support/ProtocolFixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using wpp_test::Stopwatch;
using wpp_test::waitUntil;
using namespace std::chrono_literals;

class QmcStartProjection : public wpp_test::ProtocolFixture {
protected:
    QmcStartProjection() {
        makeOwner();
        makeKnownClient(3, "phone");
    }

    void start(std::uint8_t id, std::uint32_t reason = 1) {
        owner->startProjection(id, wifi_discovery::StartRequestReason{reason});
    }

    static constexpr const char* kTimeoutLine = "StartProjection timeout. BtDeviceId=3";
};

TEST_F(QmcStartProjection, ClientIdentifierAndReasonReachTheLibrary) {
    start(3, 0xFFFFFFFF);
    ASSERT_TRUE(library.waitForStarts(1));

    EXPECT_EQ(library.starts()[0].clientId, "phone");
    EXPECT_EQ(library.starts()[0].reason, wifi_discovery::StartRequestReason{0xFFFFFFFF});
}

TEST_F(QmcStartProjection, AResultAfterFiveSecondsIsReportedExactlyOnce) {
    start(3);
    ASSERT_TRUE(library.waitForStarts(1));
    ASSERT_FALSE(waitUntil([this] { return !controller.calls().empty(); }, 5000ms));
    library.finishStart(0, 41);

    ASSERT_TRUE(controller.waitForCalls(1));
    owner->stopProjectionStart();
    EXPECT_THAT(controller.calls(), ElementsAre("OnStartProjectionResponse(3, 41)"));
    EXPECT_THAT(library.disconnected(), IsEmpty());
    EXPECT_FALSE(log.contains("timeout"));
}

TEST_F(QmcStartProjection, ACancelledStartLogsDisconnectsAndReportsZeroWithinAPollStep) {
    start(3);
    ASSERT_TRUE(library.waitForStarts(1));
    const Stopwatch watch;
    owner->stopProjectionStart();

    EXPECT_LT(watch.elapsed(), 5000ms);
    EXPECT_TRUE(log.contains("@QmcStartProjection("));
    EXPECT_EQ(log.count(kTimeoutLine), 1U);
    EXPECT_THAT(library.disconnected(), UnorderedElementsAre("RFCOMM_3", "TCP_10.0.0.3"));
    EXPECT_THAT(controller.calls(), ElementsAre("OnStartProjectionResponse(3, 0)"));
}

TEST_F(QmcStartProjection, ANewStartCancelsTheRunningOneFirst) {
    makeKnownClient(4, "other");
    start(3);
    ASSERT_TRUE(library.waitForStarts(1));
    start(4);
    ASSERT_TRUE(library.waitForStarts(2));

    EXPECT_THAT(controller.calls(), ElementsAre("OnStartProjectionResponse(3, 0)"));
    EXPECT_EQ(library.starts()[1].clientId, "other");
    library.finishStart(1, 1);
    ASSERT_TRUE(controller.waitForCalls(2));
    EXPECT_EQ(controller.calls()[1], "OnStartProjectionResponse(4, 1)");
}

TEST_F(QmcStartProjection, AStartWithoutADeviceRecordPassesAnEmptyClientIdentifier) {
    start(200);
    ASSERT_TRUE(library.waitForStarts(1));
    EXPECT_EQ(library.starts()[0].clientId, "");
    owner->stopProjectionStart();

    EXPECT_THAT(library.disconnected(), IsEmpty());
    EXPECT_THAT(controller.calls(), ElementsAre("OnStartProjectionResponse(200, 0)"));
}

TEST_F(QmcStartProjection, StoppingWithoutAStartDoesNothing) {
    owner->stopProjectionStart();
    owner->stopProjectionStart();
    EXPECT_THAT(controller.calls(), IsEmpty());
}

TEST_F(QmcStartProjection, AStopOfAnEndedStartDoesNotCancelTheNextOne) {
    start(3);
    ASSERT_TRUE(library.waitForStarts(1));
    library.finishStart(0, 1);
    ASSERT_TRUE(controller.waitForCalls(1));
    owner->stopProjectionStart();

    start(3);
    ASSERT_TRUE(library.waitForStarts(2));
    library.finishStart(1, 2);
    ASSERT_TRUE(controller.waitForCalls(2));
    EXPECT_EQ(controller.calls()[1], "OnStartProjectionResponse(3, 2)");
}

TEST_F(QmcStartProjection, AStartThatIsNeverAnsweredEndsAfterSixtySeconds) {
    start(3);
    const Stopwatch watch;
    ASSERT_TRUE(waitUntil([this] { return !controller.calls().empty(); }, 90000ms));

    EXPECT_GE(watch.elapsed(), 60000ms);
    EXPECT_EQ(log.count(kTimeoutLine), 1U);
    EXPECT_THAT(controller.calls(), ElementsAre("OnStartProjectionResponse(3, 0)"));
    EXPECT_EQ(library.disconnected().size(), 2U);
}

TEST_F(QmcStartProjection, AnExceptionInTheResultIsLoggedAndReportedAsZero) {
    start(3);
    ASSERT_TRUE(library.waitForStarts(1));
    library.failStart(0, "phone said no");

    ASSERT_TRUE(controller.waitForCalls(1));
    EXPECT_TRUE(log.contains("catch exception. BtDeviceId=3, what [phone said no]"));
    EXPECT_THAT(controller.calls(), ElementsAre("OnStartProjectionResponse(3, 0)"));
    EXPECT_EQ(library.disconnected().size(), 2U);
}

TEST_F(QmcStartProjection, AFutureWithoutSharedStateIsLoggedAndReportedAsZero) {
    library.giveStartsNoSharedState();
    start(3);

    ASSERT_TRUE(controller.waitForCalls(1));
    EXPECT_TRUE(log.contains("catch exception. BtDeviceId=3, what ["));
    EXPECT_THAT(controller.calls(), ElementsAre("OnStartProjectionResponse(3, 0)"));
}

TEST_F(QmcStartProjection, AStartThatThrowsIsLoggedAndReportedAsZero) {
    library.throwFrom("StartProjection", "no room");
    start(3);

    ASSERT_TRUE(controller.waitForCalls(1));
    EXPECT_TRUE(log.contains("catch exception. BtDeviceId=3, what [no room]"));
    EXPECT_EQ(library.disconnected().size(), 2U);
    EXPECT_THAT(controller.calls(), ElementsAre("OnStartProjectionResponse(3, 0)"));
}

TEST_F(QmcStartProjection, ADisconnectThatThrowsDoesNotKeepTheResultFromTheController) {
    library.throwFrom("ClientDisconnected", "no such name");
    start(3);
    ASSERT_TRUE(library.waitForStarts(1));
    owner->stopProjectionStart();

    EXPECT_EQ(log.count(kTimeoutLine), 1U);
    EXPECT_TRUE(log.contains("catch exception. BtDeviceId=3, what [no such name]"));
    EXPECT_THAT(controller.calls(), ElementsAre("OnStartProjectionResponse(3, 0)"));
}

TEST_F(QmcStartProjection, DestroyingTheOwnerCancelsTheStartBeforeTheLibraryGoes) {
    start(3);
    ASSERT_TRUE(library.waitForStarts(1));
    owner.reset();

    EXPECT_THAT(controller.calls(), ElementsAre("OnStartProjectionResponse(3, 0)"));
    EXPECT_EQ(library.disconnected().size(), 2U);
    EXPECT_EQ(library.liveProtocols(), 0);
}

}  // namespace
