#include "Simulator/private/Peers/ReceiverLink.h"

#include <algorithm>

#include "Tests/Simulator/FakeReceiver.h"
#include "Tests/Simulator/LoopFixture.h"

namespace simulator {
namespace {

class ReceiverLinkTest : public LoopTest {
protected:
    std::vector<std::string> replies;
    std::vector<std::string> messages;
    std::vector<std::string> changes;
    ReceiverLink link{
        loop,
        {"TO_RECEIVER", "FROM_RECEIVER"},
        {[this](std::string_view payload) { replies.emplace_back(payload); },
         [this](std::string_view payload) { messages.emplace_back(payload); },
         [this](const std::string& socket, bool up) { changes.push_back(socket + (up ? " up" : " down")); }}};
};

TEST_F(ReceiverLinkTest, SendsNothingBeforeTheReceiverIsThere) {
    EXPECT_FALSE(link.send("x"));
    EXPECT_FALSE(link.sendBytes("x"));
    link.answer("x");
    EXPECT_TRUE(changes.empty());
}

TEST_F(ReceiverLinkTest, CarriesMessagesAndRepliesOnBothSockets) {
    FakeReceiver receiver(loop, "TO_RECEIVER", "FROM_RECEIVER");
    ASSERT_TRUE(stepUntil([&] { return receiver.isConnected() && changes.size() == 2; }));
    EXPECT_TRUE(link.send("command"));
    ASSERT_TRUE(stepUntil([&] { return receiver.commands == std::vector<std::string>{"command"}; }));
    receiver.server->sendFrame("reply");
    receiver.client->sendFrame("notification");
    ASSERT_TRUE(stepUntil([&] { return replies.size() + messages.size() == 2; }));
    EXPECT_EQ(replies, std::vector<std::string>{"reply"});
    EXPECT_EQ(messages, std::vector<std::string>{"notification"});
    link.answer("answer");
    EXPECT_TRUE(stepUntil([&] { return receiver.answers == std::vector<std::string>{"answer"}; }));
}

TEST_F(ReceiverLinkTest, TellsOfEachChange) {
    {
        FakeReceiver receiver(loop, "TO_RECEIVER", "FROM_RECEIVER");
        ASSERT_TRUE(stepUntil([&] { return receiver.isConnected() && changes.size() == 2; }));
    }
    ASSERT_TRUE(stepUntil([&] { return changes.size() == 4; }));
    FakeReceiver next(loop, "TO_RECEIVER", "FROM_RECEIVER");
    ASSERT_TRUE(stepUntil([&] { return next.isConnected() && changes.size() == 6; }));
    EXPECT_EQ(std::count(changes.begin(), changes.end(), "TO_RECEIVER up"), 2);
    EXPECT_EQ(std::count(changes.begin(), changes.end(), "TO_RECEIVER down"), 1);
    EXPECT_EQ(std::count(changes.begin(), changes.end(), "FROM_RECEIVER up"), 2);
    EXPECT_EQ(std::count(changes.begin(), changes.end(), "FROM_RECEIVER down"), 1);
}

}  // namespace
}  // namespace simulator
