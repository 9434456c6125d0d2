#include "Core/QmcWifiProjectionProtocolDevice.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

namespace {

using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using wifi_projection_protocol::ClientInfo;
using wifi_projection_protocol::kNoDevice;
using wifi_projection_protocol::QmcWifiProjectionProtocolDevice;
using wifi_projection_protocol::TransportNames;
using wifi_projection_protocol::TransportType;

ClientInfo clientOf(const std::string& clientId, TransportNames transports) {
    ClientInfo client;
    client.clientId = clientId;
    client.transports = std::move(transports);
    return client;
}

TEST(QmcWifiProjectionProtocolDevice, AddingAnIdTwiceKeepsTheFirstStrings) {
    QmcWifiProjectionProtocolDevice devices;
    devices.add(3, "first info", "first client");
    devices.add(3, "second info", "second client");

    EXPECT_EQ(devices.clientIdOf(3), "first client");
    EXPECT_EQ(devices.idOf("second client"), kNoDevice);
}

TEST(QmcWifiProjectionProtocolDevice, AnUnknownIdentifierHasTheId255) {
    QmcWifiProjectionProtocolDevice devices;
    devices.add(3, "info", "client");

    EXPECT_EQ(devices.idOf("stranger"), 255);
}

TEST(QmcWifiProjectionProtocolDevice, AnUpdateWithTheRfcommNameBindsTheLibrarysIdentifier) {
    QmcWifiProjectionProtocolDevice devices;
    devices.add(3, "info", "told by the controller");
    devices.updateFrom(clientOf("X", {{TransportType::kRfcomm, "RFCOMM_3"}}));

    EXPECT_EQ(devices.idOf("X"), 3);
    EXPECT_EQ(devices.clientIdOf(3), "X");
    EXPECT_EQ(devices.idOf("told by the controller"), kNoDevice);
}

TEST(QmcWifiProjectionProtocolDevice, AnUpdateReplacesTheTransportsOfTheRecordWithItsIdentifier) {
    QmcWifiProjectionProtocolDevice devices;
    devices.add(3, "info", "X");
    devices.updateFrom(clientOf("X", {{TransportType::kRfcomm, "RFCOMM_3"}}));
    devices.updateFrom(clientOf("X", {{TransportType::kTcp, "TCP_1.2.3.4"}}));

    EXPECT_THAT(devices.transportsOf(3), UnorderedElementsAre(Pair(TransportType::kTcp, "TCP_1.2.3.4")));
    EXPECT_EQ(devices.transportsOfClient("X"), devices.transportsOf(3));
}

TEST(QmcWifiProjectionProtocolDevice, AnUpdateOfAnUnknownClientChangesNothing) {
    QmcWifiProjectionProtocolDevice devices;
    devices.add(3, "info", "X");
    devices.updateFrom(clientOf("Y", {{TransportType::kRfcomm, "RFCOMM_4"}, {TransportType::kTcp, "TCP_9"}}));

    EXPECT_EQ(devices.clientIdOf(3), "X");
    EXPECT_THAT(devices.transportsOf(3), IsEmpty());
}

TEST(QmcWifiProjectionProtocolDevice, TheRfcommNameMustMatchWhole) {
    QmcWifiProjectionProtocolDevice devices;
    devices.add(3, "info", "old");
    devices.updateFrom(clientOf("new", {{TransportType::kRfcomm, "RFCOMM_33"}}));

    EXPECT_EQ(devices.clientIdOf(3), "old");
}

TEST(QmcWifiProjectionProtocolDevice, LookupsWithoutARecordGiveEmptyResults) {
    QmcWifiProjectionProtocolDevice devices;

    EXPECT_EQ(devices.clientIdOf(7), "");
    EXPECT_THAT(devices.transportsOf(7), IsEmpty());
    EXPECT_THAT(devices.transportsOfClient("nobody"), IsEmpty());
}

TEST(QmcWifiProjectionProtocolDevice, ARemovedRecordIsGoneAndRemovingAgainDoesNothing) {
    QmcWifiProjectionProtocolDevice devices;
    devices.add(3, "info", "X");
    devices.add(4, "info", "Y");
    devices.remove(3);
    devices.remove(3);

    EXPECT_EQ(devices.idOf("X"), kNoDevice);
    EXPECT_EQ(devices.idOf("Y"), 4);
}

TEST(QmcWifiProjectionProtocolDevice, TheFirstOfTwoRecordsWithOneIdentifierWins) {
    QmcWifiProjectionProtocolDevice devices;
    devices.add(9, "info", "same");
    devices.add(2, "info", "same");

    EXPECT_EQ(devices.idOf("same"), 9);
    devices.remove(9);
    EXPECT_EQ(devices.idOf("same"), 2);
}

TEST(QmcWifiProjectionProtocolDevice, AnEmptyIdentifierMatchesARecordWithAnEmptyOne) {
    QmcWifiProjectionProtocolDevice devices;
    EXPECT_EQ(devices.idOf(""), kNoDevice);
    devices.add(5, "info", "");
    EXPECT_EQ(devices.idOf(""), 5);
}

TEST(QmcWifiProjectionProtocolDevice, ARecordWithEmbeddedZeroBytesIsComparedWhole) {
    QmcWifiProjectionProtocolDevice devices;
    devices.add(5, "info", std::string("a\0b", 3));

    EXPECT_EQ(devices.idOf("a"), kNoDevice);
    EXPECT_EQ(devices.idOf(std::string("a\0b", 3)), 5);
}

TEST(QmcWifiProjectionProtocolDevice, ThreadsThatAddAndLookUpAtOnceSeeWholeRecords) {
    constexpr int kIds = 250;
    QmcWifiProjectionProtocolDevice devices;
    std::thread writer([&devices] {
        for (int id = 0; id < kIds; ++id) {
            devices.add(static_cast<std::uint8_t>(id), "info", "client " + std::to_string(id));
        }
    });
    std::thread reader([&devices] {
        for (int id = 0; id < kIds; ++id) {
            const std::string clientId = devices.clientIdOf(static_cast<std::uint8_t>(id));
            EXPECT_TRUE(clientId.empty() || clientId == "client " + std::to_string(id));
        }
    });
    writer.join();
    reader.join();
    EXPECT_EQ(devices.idOf("client 249"), 249);
}

}  // namespace
