#include "Simulator/private/Io/Connector.h"

#include "Simulator/private/Io/LocalSocket.h"
#include "Tests/Simulator/LoopFixture.h"

namespace simulator {
namespace {

using ConnectorTest = LoopTest;

TEST_F(ConnectorTest, ConnectsOnceTheSocketIsThere) {
    UniqueFd connection;
    Connector connector(loop, "SOCKET", [&](UniqueFd fd) { connection = std::move(fd); });
    connector.start();
    UniqueFd listener;
    loop.after(Milliseconds(50), [&] { listener = listenLocal("SOCKET"); });
    EXPECT_TRUE(stepUntil([&] { return static_cast<bool>(connection); }));
}

TEST_F(ConnectorTest, ConnectsAgainWhenStartedAgain) {
    const UniqueFd listener = listenLocal("SOCKET");
    int connections = 0;
    Connector connector(loop, "SOCKET", [&](UniqueFd) { ++connections; });
    connector.start();
    EXPECT_TRUE(stepUntil([&] { return connections == 1; }));
    connector.start();
    EXPECT_TRUE(stepUntil([&] { return connections == 2; }));
}

TEST_F(ConnectorTest, SecondStartWhileKnockingChangesNothing) {
    int connections = 0;
    Connector connector(loop, "SOCKET", [&](UniqueFd) { ++connections; });
    connector.start();
    connector.start();
    const UniqueFd listener = listenLocal("SOCKET");
    EXPECT_TRUE(stepUntil([&] { return connections == 1; }));
    bool waited = false;
    loop.after(Milliseconds(60), [&] { waited = true; });  // three more knocks would have gone out by then
    EXPECT_TRUE(stepUntil([&] { return waited; }));
    EXPECT_EQ(connections, 1);
}

TEST_F(ConnectorTest, DestroyedConnectorKnocksNoMore) {
    int connections = 0;
    {
        Connector connector(loop, "SOCKET", [&](UniqueFd) { ++connections; });
        connector.start();
        loop.step(Milliseconds(0));
    }
    const UniqueFd listener = listenLocal("SOCKET");
    bool waited = false;
    loop.after(Milliseconds(60), [&] { waited = true; });
    EXPECT_TRUE(stepUntil([&] { return waited; }));
    EXPECT_EQ(connections, 0);
}

}  // namespace
}  // namespace simulator
