#include "Simulator/private/Io/FramedSocket.h"

#include <memory>

#include "Simulator/private/Io/Connector.h"
#include "Simulator/private/Io/Listener.h"
#include "Tests/Simulator/LoopFixture.h"

namespace simulator {
namespace {

/// Two framed sockets, connected by way of a listener and a connector.
class FramedSocketTest : public LoopTest {
protected:
    FramedSocketTest() {
        connector.start();
        EXPECT_TRUE(stepUntil([&] { return client && server; }));
    }

    std::unique_ptr<FramedSocket> take(UniqueFd fd, std::vector<std::string>& frames, bool& closed) {
        return std::make_unique<FramedSocket>(
            loop, std::move(fd), [&frames](std::string_view payload) { frames.emplace_back(payload); },
            [&closed] { closed = true; });
    }

    std::vector<std::string> clientFrames;
    std::vector<std::string> serverFrames;
    bool clientClosed = false;
    bool serverClosed = false;
    std::unique_ptr<FramedSocket> client;
    std::unique_ptr<FramedSocket> server;
    Listener listener{loop, "SOCKET",
                      [this](UniqueFd fd) { server = take(std::move(fd), serverFrames, serverClosed); }};
    Connector connector{loop, "SOCKET",
                        [this](UniqueFd fd) { client = take(std::move(fd), clientFrames, clientClosed); }};
};

TEST_F(FramedSocketTest, FramesArriveWholeAndInOrder) {
    client->sendFrame("first");
    client->sendFrame(std::string(300000, 'x'));
    EXPECT_TRUE(stepUntil([&] { return serverFrames.size() == 2; }));
    EXPECT_EQ(serverFrames[0], "first");
    EXPECT_EQ(serverFrames[1], std::string(300000, 'x'));
}

TEST_F(FramedSocketTest, BothSidesSend) {
    client->sendFrame("question");
    EXPECT_TRUE(stepUntil([&] { return !serverFrames.empty(); }));
    server->sendFrame("answer");
    EXPECT_TRUE(stepUntil([&] { return clientFrames == std::vector<std::string>{"answer"}; }));
}

TEST_F(FramedSocketTest, PeerThatDiesWithinAFrameIsReportedAsClosed) {
    client->sendBytes(std::string("\x10\0\0\0half", 8));
    client.reset();
    EXPECT_TRUE(stepUntil([&] { return serverClosed; }));
    EXPECT_TRUE(serverFrames.empty());
}

TEST_F(FramedSocketTest, FrameOverTheLimitClosesTheSocket) {
    client->sendBytes(encodeFrame(FrameDecoder::kLongestPayload + 1, "x"));
    EXPECT_TRUE(stepUntil([&] { return serverClosed; }));
    EXPECT_TRUE(stepUntil([&] { return clientClosed; }));
}

}  // namespace
}  // namespace simulator
