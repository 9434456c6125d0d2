#include "private/ClientRegistry.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <utility>

namespace wifi_projection_protocol {
namespace {

constexpr std::chrono::seconds kPatience{10};

class FakeLink : public PhoneLink {
public:
    FakeLink(std::string linkName, TransportType linkType)
        : ownName(std::move(linkName)), ownType(linkType) {}

    const std::string& name() const override { return ownName; }
    TransportType type() const override { return ownType; }
    std::future<std::uint32_t> startProjection(wifi_discovery::StartRequestReason) override { return {}; }
    void drop() override {}

private:
    const std::string ownName;
    const TransportType ownType;
};

class ClientRegistryTest : public testing::Test {
protected:
    using Link = ClientRegistry::Link;

    Link add(const std::string& name, TransportType type) {
        const Link link = std::make_shared<FakeLink>(name, type);
        EXPECT_TRUE(registry.add(link, replaced));
        return link;
    }

    Link addJoined(const std::string& name, TransportType type, const std::string& clientId) {
        const Link link = add(name, type);
        EXPECT_TRUE(join(link, clientId));
        return link;
    }

    bool join(const Link& link, const std::string& clientId) {
        ClientInfo client;
        client.clientId = clientId;
        return registry.join(*link, client, replaced);
    }

    // Whether the client of `link` was lost with it; reports the loss then.
    bool isLost(const Link& link) {
        const auto loss = registry.takeLoss(*link);
        if (loss) {
            registry.lossReported(loss->clientId);
        }
        return loss.has_value();
    }

    static constexpr std::size_t kLimit = 4;
    static constexpr std::size_t kStrangerLimit = 2;
    ClientRegistry registry{kLimit, kStrangerLimit};
    Link replaced;
};

TEST_F(ClientRegistryTest, LinkWithoutAClientIsNeverALoss) {
    const Link link = add("TCP_1", TransportType::kTcp);
    registry.remove(*link);
    EXPECT_FALSE(isLost(link));
}

TEST_F(ClientRegistryTest, ClientIsFoundWithItsLinks) {
    addJoined("RFCOMM_1", TransportType::kRfcomm, "phone");
    const Link tcp = addJoined("TCP_1", TransportType::kTcp, "phone");
    ASSERT_TRUE(registry.find("phone"));
    EXPECT_EQ(registry.find("phone")->transports.size(), 2U);
    EXPECT_TRUE(registry.isOnRfcomm("phone"));
    EXPECT_EQ(registry.tcpLinkOf("phone"), tcp);
}

TEST_F(ClientRegistryTest, UnknownClientHasNothing) {
    EXPECT_FALSE(registry.find("phone"));
    EXPECT_FALSE(registry.isOnRfcomm("phone"));
    EXPECT_EQ(registry.tcpLinkOf("phone"), nullptr);
}

TEST_F(ClientRegistryTest, ClientOnTcpIsNotOnRfcomm) {
    addJoined("TCP_1", TransportType::kTcp, "phone");
    EXPECT_FALSE(registry.isOnRfcomm("phone"));
}

TEST_F(ClientRegistryTest, LossIsGivenOutOnceWithTheLinksUntilThen) {
    addJoined("RFCOMM_1", TransportType::kRfcomm, "phone");
    const Link tcp = addJoined("TCP_1", TransportType::kTcp, "phone");
    registry.remove(*tcp);
    const auto loss = registry.takeLoss(*tcp);
    ASSERT_TRUE(loss);
    EXPECT_EQ(loss->transports.size(), 2U);
    EXPECT_FALSE(registry.takeLoss(*tcp));
}

TEST_F(ClientRegistryTest, LastRfcommLinkIsALossWithoutTcp) {
    const Link link = addJoined("RFCOMM_1", TransportType::kRfcomm, "phone");
    EXPECT_EQ(registry.take("RFCOMM_1"), link);
    EXPECT_TRUE(isLost(link));
    EXPECT_FALSE(registry.find("phone"));
}

TEST_F(ClientRegistryTest, RfcommLinkIsNoLossBesideTcp) {
    const Link rfcomm = addJoined("RFCOMM_1", TransportType::kRfcomm, "phone");
    const Link tcp = addJoined("TCP_1", TransportType::kTcp, "phone");
    registry.remove(*rfcomm);
    EXPECT_FALSE(isLost(rfcomm));
    registry.remove(*tcp);
    EXPECT_TRUE(isLost(tcp));
}

TEST_F(ClientRegistryTest, RfcommLinkIsNoSecondLossAfterTcp) {
    const Link rfcomm = addJoined("RFCOMM_1", TransportType::kRfcomm, "phone");
    const Link tcp = addJoined("TCP_1", TransportType::kTcp, "phone");
    registry.remove(*tcp);
    EXPECT_TRUE(isLost(tcp));
    registry.remove(*rfcomm);
    EXPECT_FALSE(isLost(rfcomm));
}

TEST_F(ClientRegistryTest, NewHelloMakesANewLossPossible) {
    addJoined("RFCOMM_1", TransportType::kRfcomm, "phone");
    for (int round = 0; round < 2; ++round) {
        const Link tcp = addJoined("TCP_1", TransportType::kTcp, "phone");
        registry.remove(*tcp);
        EXPECT_TRUE(isLost(tcp));
    }
}

TEST_F(ClientRegistryTest, LinkOfTheSameNameTakesTheOldOneOut) {
    const Link old = addJoined("TCP_1", TransportType::kTcp, "phone");
    add("TCP_1", TransportType::kTcp);
    EXPECT_EQ(replaced, old);
    EXPECT_TRUE(isLost(old));
}

TEST_F(ClientRegistryTest, LinkThatIsOutIsNotRemovedAgainForItsName) {
    const Link old = add("TCP_1", TransportType::kTcp);
    const Link fresh = add("TCP_1", TransportType::kTcp);
    registry.remove(*old);
    EXPECT_EQ(registry.take("TCP_1"), fresh);
}

TEST_F(ClientRegistryTest, LinkOfTheSameKindTakesTheOldOneOutWithoutALoss) {
    const Link old = addJoined("TCP_1", TransportType::kTcp, "phone");
    const Link fresh = addJoined("TCP_2", TransportType::kTcp, "phone");
    EXPECT_EQ(replaced, old);
    EXPECT_FALSE(isLost(old));
    EXPECT_EQ(registry.tcpLinkOf("phone"), fresh);
}

TEST_F(ClientRegistryTest, NewHelloBringsNewNames) {
    addJoined("RFCOMM_1", TransportType::kRfcomm, "phone");
    const Link tcp = add("TCP_1", TransportType::kTcp);
    ClientInfo client;
    client.clientId = "phone";
    client.phoneName = "renamed";
    ASSERT_TRUE(registry.join(*tcp, client, replaced));
    EXPECT_EQ(registry.find("phone")->phoneName, "renamed");
    EXPECT_EQ(registry.find("phone")->transports.size(), 2U);
}

TEST_F(ClientRegistryTest, LinkThatIsOutCannotJoin) {
    const Link link = add("TCP_1", TransportType::kTcp);
    registry.take("TCP_1");
    EXPECT_FALSE(join(link, "phone"));
    EXPECT_FALSE(registry.find("phone"));
}

TEST_F(ClientRegistryTest, JoiningWaitsUntilTheLossBeforeIsReported) {
    const Link old = addJoined("TCP_1", TransportType::kTcp, "phone");
    registry.take("TCP_1");
    const Link fresh = add("TCP_1", TransportType::kTcp);
    auto joining = std::async(std::launch::async, [&] { return join(fresh, "phone"); });
    EXPECT_EQ(joining.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    EXPECT_TRUE(isLost(old));
    ASSERT_EQ(joining.wait_for(kPatience), std::future_status::ready);
    EXPECT_TRUE(joining.get());
}

TEST_F(ClientRegistryTest, StopEndsAWaitForALossThatIsNotReported) {
    addJoined("TCP_1", TransportType::kTcp, "phone");
    registry.take("TCP_1");
    const Link fresh = add("TCP_1", TransportType::kTcp);
    auto joining = std::async(std::launch::async, [&] { return join(fresh, "phone"); });
    registry.stop();
    ASSERT_EQ(joining.wait_for(kPatience), std::future_status::ready);
    EXPECT_FALSE(joining.get());
}

TEST_F(ClientRegistryTest, EveryLinkIsTakenOutAfterTheStop) {
    const Link first = addJoined("TCP_1", TransportType::kTcp, "phone");
    const Link second = add("TCP_2", TransportType::kTcp);
    registry.stop();
    EXPECT_EQ(registry.takeAny(), first);
    EXPECT_EQ(registry.takeAny(), second);
    EXPECT_EQ(registry.takeAny(), nullptr);
}

TEST_F(ClientRegistryTest, NothingIsLostOnceStopped) {
    const Link before = addJoined("TCP_1", TransportType::kTcp, "first");
    const Link after = addJoined("TCP_2", TransportType::kTcp, "second");
    registry.take("TCP_1");
    registry.stop();
    registry.take("TCP_2");
    EXPECT_FALSE(isLost(before));
    EXPECT_FALSE(isLost(after));
}

TEST_F(ClientRegistryTest, NothingIsAddedOnceStopped) {
    registry.stop();
    EXPECT_FALSE(registry.add(std::make_shared<FakeLink>("TCP_1", TransportType::kTcp), replaced));
}

TEST_F(ClientRegistryTest, LinksAreLimitedAndANameInUseMakesItsOwnRoom) {
    for (std::size_t i = 0; i < kLimit; ++i) {
        add("TCP_" + std::to_string(i), TransportType::kTcp);
    }
    EXPECT_FALSE(registry.add(std::make_shared<FakeLink>("TCP_9", TransportType::kTcp), replaced));
    EXPECT_TRUE(registry.add(std::make_shared<FakeLink>("TCP_0", TransportType::kTcp), replaced));
}

TEST_F(ClientRegistryTest, RoomForAStrangerIsMadeByTheOneThatHasWaitedLongest) {
    add("RFCOMM_1", TransportType::kRfcomm);
    const Link oldest = add("TCP_2", TransportType::kTcp);
    add("TCP_1", TransportType::kTcp);
    EXPECT_EQ(registry.makeRoom(TransportType::kRfcomm), nullptr);
    EXPECT_EQ(registry.makeRoom(TransportType::kTcp), oldest);
    EXPECT_EQ(registry.makeRoom(TransportType::kTcp), nullptr);
    EXPECT_FALSE(join(oldest, "late"));
}

TEST_F(ClientRegistryTest, StrangerMakesRoomForAnyLinkWhenAllIsFull) {
    addJoined("TCP_1", TransportType::kTcp, "phone");
    addJoined("RFCOMM_1", TransportType::kRfcomm, "phone");
    add("RFCOMM_2", TransportType::kRfcomm);
    const Link stranger = add("TCP_2", TransportType::kTcp);
    EXPECT_EQ(registry.makeRoom(TransportType::kRfcomm), stranger);
    add("RFCOMM_3", TransportType::kRfcomm);
    EXPECT_EQ(registry.makeRoom(TransportType::kTcp), nullptr);
}

}  // namespace
}  // namespace wifi_projection_protocol
