#include "Core/QmcWifiProjectionProtocol.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <system_error>

#include "Tests/Support/NoNewThreads.h"
#include "Tests/Support/ProcessState.h"
#include "Tests/WppReceiver/Support/LoopbackClient.h"
#include "Tests/WppReceiver/Support/ProtocolFixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using wifi_projection_protocol::ClientSocket;
using wifi_projection_protocol::kNoDevice;
using wpp_test::FakeReceiverLib;
using wpp_test::makeClient;
using wpp_test::waitUntil;

class QmcWifiProjectionProtocol : public wpp_test::ProtocolFixture {
protected:
    /// A connected socket as the TCP server hands it over; the other end is the phone's.
    ClientSocket accepted(const std::string& peerAddress) {
        int ends[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        phone.reset(ends[1]);
        return {ends[0], peerAddress};
    }

    bool phoneSeesTheEnd() const {
        char byte = 0;
        return recv(phone.get(), &byte, 1, MSG_DONTWAIT) == 0;
    }

    static FakeReceiverLib::Client client(const std::string& name, TransportType type) {
        return {name, type};
    }

    QMDescriptor phone;
};

TEST_F(QmcWifiProjectionProtocol, ConstructionHandsTheControllersValuesToTheLibrary) {
    common::HeadUnitInfo info;
    info.set_text_1("first");
    info.set_text_8("eighth");
    owner = std::make_unique<wifi_projection_protocol::QmcWifiProjectionProtocol>(
        &controller, wifi_discovery::WifiChannelType{7}, std::vector<unsigned int>{1, 6, 11}, info, "", "",
        "");

    ASSERT_EQ(library.constructions().size(), 1U);
    const FakeReceiverLib::Construction made = library.constructions()[0];
    EXPECT_EQ(made.channelType, wifi_discovery::WifiChannelType{7});
    EXPECT_THAT(made.channelList, ElementsAre(1, 6, 11));
    EXPECT_EQ(made.headUnitInfo.text_1(), "first");
    EXPECT_EQ(made.headUnitInfo.text_8(), "eighth");
    EXPECT_EQ(made.listenHost, "0.0.0.0");
    EXPECT_EQ(made.listenPort, 30516);
    EXPECT_FALSE(made.passive);
    EXPECT_THAT(controller.calls(), IsEmpty());
}

TEST_F(QmcWifiProjectionProtocol, ConstructionListensOnPort30516AndDestructionEndsIt) {
    makeOwner();
    QMDescriptor connection;
    ASSERT_TRUE(waitUntil([&] { return (connection = wpp_test::connectTo(30516)).isValid(); }));
    owner.reset();
    EXPECT_FALSE(wpp_test::connectTo(30516).isValid());
    EXPECT_EQ(library.liveProtocols(), 0);
    EXPECT_EQ(library.liveFactories(), 0);
}

TEST_F(QmcWifiProjectionProtocol, RfcommConnectedHandsOverAnRfcommClientNamedByItsId) {
    makeOwner().rfcommConnected(7);
    EXPECT_THAT(library.connected(), ElementsAre(client("RFCOMM_7", TransportType{1})));
}

TEST_F(QmcWifiProjectionProtocol, RfcommDisconnectedDisconnectsAClientThatWasNeverConnected) {
    makeOwner().rfcommDisconnected(7);
    EXPECT_THAT(library.disconnected(), ElementsAre("RFCOMM_7"));
}

TEST_F(QmcWifiProjectionProtocol, SettingsReachTheInfoProvider) {
    makeOwner();
    owner->setProjectionPortInfo("192.168.1.1", 30516);
    owner->setWifiInfo("a", "b", "c", 5);

    EXPECT_EQ(library.infoProvider()->projectionAddress().host(), "192.168.1.1");
    EXPECT_EQ(library.infoProvider()->projectionAddress().port(), 30516);
    EXPECT_EQ(library.infoProvider()->wifiInfo1(), "a");
    EXPECT_EQ(library.infoProvider()->wifiInfo4(), 5);
}

TEST_F(QmcWifiProjectionProtocol, TheLibrarysLogLinesAreDropped) {
    makeOwner();
    library.loggingCallback()->log(1, "a line of the library");
    EXPECT_FALSE(log.contains("a line of the library"));
}

TEST_F(QmcWifiProjectionProtocol, AnAcceptedClientIsHandedOverAsTcpAndItsAddress) {
    makeOwner("cert", "key", "ca");
    owner->onClientAccepted(accepted("192.168.1.20"));

    EXPECT_THAT(library.connected(), ElementsAre(client("TCP_192.168.1.20", TransportType{2})));
}

TEST_F(QmcWifiProjectionProtocol, ConfiguredTlsTextsMakeTheFactoryWithoutAskingTheController) {
    makeOwner("cert", "key", "ca");
    owner->onClientAccepted(accepted("10.0.0.1"));
    owner->onClientAccepted(accepted("10.0.0.2"));

    ASSERT_EQ(library.factories().size(), 1U);
    const FakeReceiverLib::Factory factory = library.factories()[0];
    EXPECT_EQ(factory.certificate, "cert");
    EXPECT_EQ(factory.privateKey, "key");
    EXPECT_EQ(factory.caCertificate, "ca");
    EXPECT_FALSE(factory.hasTimeLimit);
    EXPECT_FALSE(factory.acceptAnyPhone);
    EXPECT_EQ(factory.serviceName, "CarService");
    EXPECT_THAT(controller.calls(), IsEmpty());
}

TEST_F(QmcWifiProjectionProtocol, EmptyTlsTextsAreFetchedOnceForAllClients) {
    controller.handOut({"fetched cert", "fetched key", "fetched ca"});
    makeOwner("", "ignored key", "ignored ca");
    owner->onClientAccepted(accepted("10.0.0.1"));
    owner->onClientAccepted(accepted("10.0.0.2"));

    EXPECT_THAT(controller.calls(), ElementsAre("ReqGetSecureSslKey()"));
    ASSERT_EQ(library.factories().size(), 1U);
    EXPECT_EQ(library.factories()[0].certificate, "fetched cert");
    EXPECT_EQ(library.factories()[0].privateKey, "fetched key");
    EXPECT_EQ(library.factories()[0].caCertificate, "fetched ca");
    EXPECT_EQ(library.connected().size(), 2U);
}

TEST_F(QmcWifiProjectionProtocol, AFailedFetchMakesAFactoryOfEmptyTextsThatIsKept) {
    makeOwner();
    owner->onClientAccepted(accepted("10.0.0.1"));
    owner->onClientAccepted(accepted("10.0.0.2"));

    EXPECT_EQ(controller.calls().size(), 1U);
    ASSERT_EQ(library.factories().size(), 1U);
    EXPECT_EQ(library.factories()[0].certificate, "");
}

TEST_F(QmcWifiProjectionProtocol, AClientThatCannotBeWrappedIsClosedSilently) {
    library.refuseToWrap();
    makeOwner("cert", "key", "ca");
    owner->onClientAccepted(accepted("10.0.0.1"));

    EXPECT_TRUE(phoneSeesTheEnd());
    EXPECT_THAT(library.connected(), IsEmpty());
    EXPECT_THAT(controller.calls(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QmcWifiProjectionProtocol, AClientMetByAnExceptionBeforeItIsWrappedIsClosed) {
    library.throwFrom("SslTransportFactory", "no room");
    makeOwner("cert", "key", "ca");
    EXPECT_THROW(owner->onClientAccepted(accepted("10.0.0.1")), std::runtime_error);

    EXPECT_TRUE(phoneSeesTheEnd());
}

TEST_F(QmcWifiProjectionProtocol, AWrappedClientMetByAnExceptionIsClosed) {
    library.throwFrom("ClientConnected", "no room");
    makeOwner("cert", "key", "ca");
    EXPECT_THROW(owner->onClientAccepted(accepted("10.0.0.1")), std::runtime_error);

    EXPECT_TRUE(phoneSeesTheEnd());
}

TEST_F(QmcWifiProjectionProtocol, AFactoryThatCouldNotBeMadeIsTriedAgainForTheNextClient) {
    library.throwFrom("SslTransportFactory", "no room");
    makeOwner("cert", "key", "ca");
    EXPECT_THROW(owner->onClientAccepted(accepted("10.0.0.1")), std::runtime_error);
    library.reset();
    owner->onClientAccepted(accepted("10.0.0.2"));

    EXPECT_THAT(library.connected(), ElementsAre(client("TCP_10.0.0.2", TransportType::kTcp)));
}

TEST_F(QmcWifiProjectionProtocol, WithoutAServerThreadTheLibraryEndsBeforeWhatItCanReach) {
    library.askWhileEnding();
    const wpp_test::NoNewThreads shortage;
    EXPECT_THROW(makeOwner(), std::system_error);

    EXPECT_EQ(library.constructions().size(), 1U);
    EXPECT_EQ(library.liveProtocols(), 0);
}

TEST_F(QmcWifiProjectionProtocol, DeletingADeviceWithoutATcpNameOnlyRemovesItsRecord) {
    makeOwner();
    owner->addDeviceInfo(3, "info", "phone");
    owner->deviceRecords().updateFrom(makeClient("phone", {{TransportType::kRfcomm, "RFCOMM_3"}}));
    owner->deleteDeviceInfo(3);

    EXPECT_THAT(library.disconnected(), IsEmpty());
    EXPECT_EQ(owner->deviceRecords().idOf("phone"), kNoDevice);
}

TEST_F(QmcWifiProjectionProtocol, DeletingADeviceDisconnectsItsTcpClientAndLeavesRfcommAlone) {
    makeOwner();
    makeKnownClient(3, "phone");
    owner->deleteDeviceInfo(3);

    EXPECT_THAT(library.disconnected(), ElementsAre("TCP_10.0.0.3"));
    EXPECT_EQ(owner->deviceRecords().idOf("phone"), kNoDevice);
}

TEST_F(QmcWifiProjectionProtocol, DeletingAnUnknownDeviceDoesNothing) {
    makeOwner().deleteDeviceInfo(3);
    EXPECT_THAT(library.disconnected(), IsEmpty());
}

TEST_F(QmcWifiProjectionProtocol, TwoHundredLivesLeaveNoDescriptorAndNoThread) {
    makeOwner().rfcommConnected(1);
    owner.reset();
    const auto descriptors = wpp_test::openDescriptors().size();
    const auto threads = wpp_test::threadCount();
    for (int i = 0; i < 200; ++i) {
        makeOwner().rfcommConnected(i % 255);
        owner.reset();
    }
    EXPECT_EQ(wpp_test::openDescriptors().size(), descriptors);
    EXPECT_TRUE(waitUntil([&] { return wpp_test::threadCount() == threads; }));
}

}  // namespace
