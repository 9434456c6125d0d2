#include "Core/WifiSocketPolling.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "Foundation/QMDescriptor.h"
#include "Tests/Support/Deadline.h"
#include "Tests/Support/FailingCall.h"
#include "Tests/Support/ProcessState.h"

namespace {

using namespace std::chrono_literals;

QMDescriptor readyDescriptor() {
    return QMDescriptor(eventfd(1, EFD_CLOEXEC));
}
QMDescriptor silentDescriptor() {
    return QMDescriptor(eventfd(0, EFD_CLOEXEC));
}

TEST(WifiSocketPolling, AReadySocketGivesOne) {
    const QMDescriptor watched = readyDescriptor();
    WifiSocketPolling polling;
    polling.add(watched.get(), EPOLLIN);

    EXPECT_EQ(polling.wait(10000), 1);
}

TEST(WifiSocketPolling, NothingInTimeGivesZero) {
    const QMDescriptor watched = silentDescriptor();
    WifiSocketPolling polling;
    polling.add(watched.get(), EPOLLIN);
    const wpp_test::Stopwatch watch;

    EXPECT_EQ(polling.wait(50), 0);
    EXPECT_GE(watch.elapsed(), 50ms);
}

TEST(WifiSocketPolling, AWakeUpFromAnotherThreadGivesMinusOne) {
    WifiSocketPolling polling;
    std::thread waker([&polling] { polling.wakeUp(); });

    EXPECT_EQ(polling.wait(-1), -1);
    waker.join();
}

TEST(WifiSocketPolling, AWakeUpWinsOverAReadySocket) {
    const QMDescriptor watched = readyDescriptor();
    WifiSocketPolling polling;
    polling.add(watched.get(), EPOLLIN);
    polling.wakeUp();

    EXPECT_EQ(polling.wait(10000), -1);
}

TEST(WifiSocketPolling, AfterAWakeUpEveryLaterWaitReturnsAtOnce) {
    WifiSocketPolling polling;
    polling.wakeUp();

    EXPECT_EQ(polling.wait(-1), -1);
    EXPECT_EQ(polling.wait(-1), -1);
    EXPECT_EQ(polling.wait(0), -1);
}

TEST(WifiSocketPolling, AddingASocketTwiceIsHarmless) {
    const QMDescriptor watched = readyDescriptor();
    WifiSocketPolling polling;
    polling.add(watched.get(), EPOLLIN);
    polling.add(watched.get(), EPOLLIN);

    EXPECT_EQ(polling.wait(10000), 1);
}

TEST(WifiSocketPolling, InitAgainForgetsTheWakeUpAndLeaksNothing) {
    WifiSocketPolling polling;
    polling.wakeUp();
    const auto before = wpp_test::openDescriptors().size();
    polling.init();

    EXPECT_EQ(polling.wait(0), 0);
    EXPECT_EQ(wpp_test::openDescriptors().size(), before);
}

TEST(WifiSocketPolling, AWaitThatNothingCouldEndFailsAtOnce) {
    const wpp_test::FailingCall shortage(wpp_test::SystemCall::kEventFd, EMFILE);
    WifiSocketPolling polling;
    EXPECT_EQ(polling.wait(-1), WifiSocketPolling::kFailed);
}

TEST(WifiSocketPolling, DestructionClosesBothDescriptors) {
    const auto before = wpp_test::openDescriptors();
    { WifiSocketPolling polling; }
    EXPECT_EQ(wpp_test::openDescriptors(), before);
}

}  // namespace
