#include "Simulator/private/Peers/RfcommHub.h"

#include "Simulator/private/Io/LocalSocket.h"
#include "Tests/Simulator/LoopFixture.h"

namespace simulator {
namespace {

class RfcommHubTest : public LoopTest {
protected:
    std::vector<int> linked;
    std::string received;
    std::vector<int> gone;
    RfcommHub hub{loop,
                  {[this](std::uint8_t device) { linked.push_back(device); },
                   [this](std::uint8_t, std::string_view bytes) { received += bytes; },
                   [this](std::uint8_t device) { gone.push_back(device); }}};
};

TEST_F(RfcommHubTest, KnowsADeviceByItsFirstByte) {
    ByteStream phone(
        loop, connectLocal(kRfcommSocketName), [](std::string_view) {}, [] {});
    phone.send(
        "\xfe"
        "rest");
    EXPECT_TRUE(stepUntil([&] { return received == "rest"; }));
    EXPECT_EQ(linked, std::vector<int>{254});
}

TEST_F(RfcommHubTest, SendsNothingToADeviceWithoutALink) {
    EXPECT_FALSE(hub.send(1, "x"));
    EXPECT_FALSE(hub.drop(1));
}

TEST_F(RfcommHubTest, DroppedDeviceIsNotReportedAsGone) {
    bool closed = false;
    ByteStream phone(
        loop, connectLocal(kRfcommSocketName), [](std::string_view) {}, [&] { closed = true; });
    phone.send("\1");
    ASSERT_TRUE(stepUntil([&] { return !linked.empty(); }));
    EXPECT_TRUE(hub.drop(1));
    EXPECT_TRUE(stepUntil([&] { return closed; }));
    EXPECT_TRUE(gone.empty());
}

TEST_F(RfcommHubTest, LeavingDeviceIsReportedOnce) {
    {
        ByteStream phone(
            loop, connectLocal(kRfcommSocketName), [](std::string_view) {}, [] {});
        phone.send("\1");
        ASSERT_TRUE(stepUntil([&] { return !linked.empty(); }));
    }
    EXPECT_TRUE(stepUntil([&] { return !gone.empty(); }));
    EXPECT_EQ(gone, std::vector<int>{1});
    EXPECT_FALSE(hub.send(1, "x"));
}

}  // namespace
}  // namespace simulator
