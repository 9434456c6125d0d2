#include "Simulator/private/Peers/MessageBytes.h"

#include <gtest/gtest.h>

#include "LibWpp/ControlMessages.h"

namespace simulator {
namespace {

using wifi_projection_protocol::SetProjectionPortInfoSerializer;

TEST(MessageBytes, PayloadDecodesIntoTheSameMessage) {
    SetProjectionPortInfoSerializer sent("10.0.0.1", 30516);
    SetProjectionPortInfoSerializer received;
    decodeInto(received, payloadOf(sent));
    EXPECT_EQ(received.ipAddress, "10.0.0.1");
    EXPECT_EQ(received.port, 30516);
}

TEST(MessageBytes, IdIsTheFirstFourBytes) {
    SetProjectionPortInfoSerializer message;
    EXPECT_EQ(messageIdOf(payloadOf(message)), 1002);
}

TEST(MessageBytes, PayloadTooShortForAnIdHasNone) {
    EXPECT_EQ(messageIdOf("abc"), -1);
}

}  // namespace
}  // namespace simulator
