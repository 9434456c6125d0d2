#include "wifi_projection_protocol/WifiProjectionProtocol.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Tests/ReceiverLib/Support/Loopback.h"
#include "Tests/ReceiverLib/Support/MemoryLink.h"
#include "Tests/ReceiverLib/Support/RecordingHeadUnit.h"
#include "Tests/ReceiverLib/Support/TestPhone.h"
#include "Tests/ReceiverLib/Support/TlsPhone.h"
#include "wifi_projection_protocol/SslTransportFactory.h"

namespace wpp_test {
namespace {

using simulator::CertificateAuthority;
using simulator::Usage;
using wifi_projection_protocol::InetSocketAddress;
using wifi_projection_protocol::SslTransportFactory;
using wifi_projection_protocol::TransportType;

// The library as a program meets it: through its public interface, from its shared object, with real TLS.
class WifiProjectionProtocol : public testing::Test {
protected:
    using Library = wifi_projection_protocol::WifiProjectionProtocol;

    // A phone that has shaken hands and that the library has been given under `name`.
    std::shared_ptr<TlsPhone> connectTls(const std::string& name) {
        Loopback loopback = connectLoopback();
        auto transport = factory.CreateSslTransportInputOutput(handOver(loopback.headUnit));
        EXPECT_TRUE(transport);
        library->ClientConnected(name, TransportType::kTcp, std::move(transport));
        auto phone = std::make_shared<TlsPhone>(
            std::move(loopback.phone),
            TlsPhoneOptions{authority.issue("phone", Usage::kClient), authority.caCertificatePem(), 0});
        EXPECT_TRUE(phone->handshake());
        return phone;
    }

    static std::unique_ptr<Library> makeLibrary(const std::shared_ptr<RecordingHeadUnit>& unit) {
        common::HeadUnitInfo info;
        info.set_text_1("head unit");
        return std::make_unique<Library>(unit->makeCallback(), unit->makeInfoProvider(),
                                         wifi_discovery::WifiChannelType{1}, std::vector<unsigned int>{36},
                                         info, InetSocketAddress("0.0.0.0", 30516), false, unit->makeLog());
    }

    CertificateAuthority authority;
    simulator::IssuedCertificate server = authority.issue("head unit", Usage::kServer);
    SslTransportFactory factory{server.certificatePem,
                                server.privateKeyPem,
                                authority.caCertificatePem(),
                                std::nullopt,
                                false,
                                "service"};
    std::shared_ptr<RecordingHeadUnit> unit = RecordingHeadUnit::make();
    std::unique_ptr<Library> library = makeLibrary(unit);
};

TEST_F(WifiProjectionProtocol, OnePhoneWalksTheWholeRoadOverTls) {
    const auto link = MemoryLink::make();
    library->ClientConnected("RFCOMM_1", TransportType::kRfcomm, link->makeTransport());
    TestPhone onRfcomm(link);
    ASSERT_TRUE(onRfcomm.introduce("phone"));
    const auto tls = connectTls("TCP_127.0.0.1");
    TestPhone phone(tls);
    ASSERT_TRUE(phone.introduce("phone"));
    ASSERT_TRUE(phone.askMayIStart());
    ASSERT_EQ(phone.hearAnswer(), 0);
    ASSERT_TRUE(phone.sayReady());
    ASSERT_TRUE(unit->waitFor(Event::kReady));
    auto result = library->StartProjection("phone", wifi_discovery::StartRequestReason{2});
    ASSERT_EQ(phone.hearStart(), 2U);
    ASSERT_TRUE(phone.sayStartResult(8));
    ASSERT_EQ(result.wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(result.get(), 8U);
    tls->vanish();
    ASSERT_TRUE(unit->waitFor(Event::kLost));
    EXPECT_EQ(unit->events(Event::kLost)[0].client.transports.at(TransportType::kTcp), "TCP_127.0.0.1");
}

TEST_F(WifiProjectionProtocol, StrangersHoldUpNobody) {
    std::vector<Loopback> strangers;
    for (int i = 0; i < 20; ++i) {
        strangers.push_back(connectLoopback());
        library->ClientConnected("TCP_" + std::to_string(i), TransportType::kTcp,
                                 factory.CreateSslTransportInputOutput(handOver(strangers.back().headUnit)));
    }
    unit->addKnown("phone");
    TestPhone phone(connectTls("TCP_good"));
    EXPECT_TRUE(phone.introduce("phone"));
}

TEST_F(WifiProjectionProtocol, EndInTheMiddleOfAHandshakeWaitsForNoPhone) {
    Loopback silent = connectLoopback();
    library->ClientConnected("TCP_1", TransportType::kTcp,
                             factory.CreateSslTransportInputOutput(handOver(silent.headUnit)));
    const auto begin = std::chrono::steady_clock::now();
    library.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(4000));
    EXPECT_EQ(unit->count(Event::kLost), 0U);
    EXPECT_EQ(unit->releaseCount(), 3);
}

TEST_F(WifiProjectionProtocol, DisconnectedPhoneHearsTheEnd) {
    unit->addKnown("phone");
    const auto tls = connectTls("TCP_1");
    TestPhone phone(tls);
    ASSERT_TRUE(phone.introduce("phone"));
    library->ClientDisconnected("TCP_1");
    EXPECT_EQ(tls->receive(), "");
    EXPECT_TRUE(unit->waitFor(Event::kLost));
}

TEST_F(WifiProjectionProtocol, TwoLibrariesWorkSideBySide) {
    const auto otherUnit = RecordingHeadUnit::make();
    const auto other = makeLibrary(otherUnit);
    unit->addKnown("phone");
    TestPhone phone(connectTls("TCP_1"));
    ASSERT_TRUE(phone.introduce("phone"));
    EXPECT_EQ(other->StartProjection("phone", wifi_discovery::StartRequestReason{1}).get(), 0U);
}

TEST_F(WifiProjectionProtocol, DescriptorsAndThreadsAreBackAfterTwoHundredConnections) {
    unit->addKnown("phone");
    const std::size_t descriptors = countDescriptors();
    const std::size_t threads = countThreads();
    for (std::size_t i = 0; i < 200; ++i) {
        const auto tls = connectTls("TCP_1");
        TestPhone phone(tls);
        ASSERT_TRUE(phone.introduce("phone"));
    }
    ASSERT_TRUE(unit->waitFor(Event::kLost, 200));
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while ((countThreads() > threads || countDescriptors() > descriptors) &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_EQ(countThreads(), threads);
    EXPECT_EQ(countDescriptors(), descriptors);
}

TEST_F(WifiProjectionProtocol, SharedObjectKeepsThePhoneProtocolToItself) {
    const auto close = [](void* object) { ::dlclose(object); };
    const std::unique_ptr<void, decltype(close)> object(
        ::dlopen("libreceiver-lib-4.2.so", RTLD_NOW | RTLD_NOLOAD), close);
    ASSERT_TRUE(object);
    EXPECT_NE(::dlsym(object.get(), "_ZN6common12HeadUnitInfo5ClearEv"), nullptr);
    EXPECT_EQ(::dlsym(object.get(), "_ZN14phone_protocol5Hello5ClearEv"), nullptr);
    EXPECT_EQ(::dlsym(object.get(), "_ZN24wifi_projection_protocol14ProtocolEngine4stopEv"), nullptr);
}

}  // namespace
}  // namespace wpp_test
