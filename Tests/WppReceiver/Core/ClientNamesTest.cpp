#include "Core/ClientNames.h"

#include <gtest/gtest.h>

namespace {

using wifi_projection_protocol::rfcommClientName;
using wifi_projection_protocol::tcpClientName;

TEST(ClientNames, AnRfcommClientIsNamedByItsDecimalId) {
    EXPECT_EQ(rfcommClientName(7), "RFCOMM_7");
    EXPECT_EQ(rfcommClientName(0), "RFCOMM_0");
    EXPECT_EQ(rfcommClientName(254), "RFCOMM_254");
}

TEST(ClientNames, ATcpClientIsNamedByItsAddress) {
    EXPECT_EQ(tcpClientName("192.168.1.20"), "TCP_192.168.1.20");
}

}  // namespace
