#include "Foundation/QMWatchDog.h"

#include <gtest/gtest.h>

#include "Pattern/QMSingleton.h"
#include "Tests/Support/LogCapture.h"

namespace {

class QMWatchDogTest : public testing::Test {
protected:
    void TearDown() override { qm_DestroySingletons(); }
};

TEST_F(QMWatchDogTest, StartAlwaysSucceeds) {
    EXPECT_TRUE(QMWatchDog::getInstance()->Start());
    EXPECT_TRUE(QMWatchDog::getInstance()->Start());
}

TEST_F(QMWatchDogTest, ThereIsOneWatchDog) {
    EXPECT_EQ(QMWatchDog::getInstance(), QMWatchDog::getInstance());
}

TEST_F(QMWatchDogTest, HooksAreSilent) {
    wpp_test::LogCapture log;
    QMWatchDog* watchDog = QMWatchDog::getInstance();
    watchDog->EnterWait();
    watchDog->LeaveWait();
    watchDog->Stop();
    EXPECT_EQ(log.text(), "");
}

}  // namespace
