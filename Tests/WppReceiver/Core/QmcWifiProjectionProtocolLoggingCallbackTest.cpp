#include "Core/QmcWifiProjectionProtocolLoggingCallback.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/LogCapture.h"
#include "Tests/Support/SyslogCapture.h"

namespace {

TEST(QmcWifiProjectionProtocolLoggingCallback, EveryLineIsDropped) {
    const wpp_test::LogCapture log;
    const wpp_test::SyslogCapture systemLog;
    wifi_projection_protocol::QmcWifiProjectionProtocolLoggingCallback callback;
    for (int level = -1; level < 8; ++level) {
        callback.log(level, "a line of the library");
    }

    EXPECT_EQ(log.text(), "");
    EXPECT_THAT(systemLog.records(), testing::IsEmpty());
}

}  // namespace
