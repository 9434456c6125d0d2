#include "wifi_projection_protocol/SslTransportFactory.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Tests/ReceiverLib/Support/Loopback.h"
#include "Tests/ReceiverLib/Support/TlsPhone.h"

namespace wpp_test {
namespace {

using simulator::CertificateAuthority;
using simulator::Usage;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using wifi_projection_protocol::TransportInputOutput;

class SslTransportFactory : public testing::Test {
protected:
    using Factory = wifi_projection_protocol::SslTransportFactory;

    std::unique_ptr<Factory> makeFactory(std::optional<long> limit = std::nullopt) const {
        return std::make_unique<Factory>(server.certificatePem, server.privateKeyPem,
                                         authority.caCertificatePem(), limit, false, "service");
    }

    // Whether a phone can talk over a transport of this factory.
    bool serves(Factory& factory) const {
        Loopback loopback = connectLoopback();
        const auto transport = factory.CreateSslTransportInputOutput(handOver(loopback.headUnit));
        return transport && talks(*transport, std::move(loopback));
    }

    bool talks(TransportInputOutput& transport, Loopback loopback) const {
        auto writing = std::async(std::launch::async, [&] { return transport.write("hello", 5); });
        TlsPhone phone(std::move(loopback.phone),
                       {authority.issue("phone", Usage::kClient), authority.caCertificatePem(), 0});
        return phone.handshake() && phone.receive() == "hello" && writing.get() == 5;
    }

    static void expectWrapsNothing(Factory& factory) {
        const Loopback loopback = connectLoopback();
        const int flags = ::fcntl(loopback.headUnit.get(), F_GETFL);
        EXPECT_EQ(factory.CreateSslTransportInputOutput(loopback.headUnit.get()), nullptr);
        EXPECT_TRUE(isOpen(loopback.headUnit.get()));
        EXPECT_EQ(::fcntl(loopback.headUnit.get(), F_GETFL), flags);
    }

    CertificateAuthority authority;
    simulator::IssuedCertificate server = authority.issue("head unit", Usage::kServer);
};

TEST_F(SslTransportFactory, ServesPhoneAfterPhone) {
    const auto factory = makeFactory();
    EXPECT_TRUE(serves(*factory));
    EXPECT_TRUE(serves(*factory));
}

TEST_F(SslTransportFactory, EmptyTextsWrapNothingAndLeaveTheSocketOpen) {
    Factory factory("", "", "", std::nullopt, false, "service");
    expectWrapsNothing(factory);
}

TEST_F(SslTransportFactory, GarbageWrapsNothingAndLeavesTheSocketOpen) {
    Factory factory("garbage", "garbage", "garbage", std::nullopt, false, "service");
    expectWrapsNothing(factory);
}

TEST_F(SslTransportFactory, InvalidDescriptorIsNotWrapped) {
    EXPECT_EQ(makeFactory()->CreateSslTransportInputOutput(-1), nullptr);
}

TEST_F(SslTransportFactory, TwoFactoriesWorkSideBySide) {
    const auto first = makeFactory();
    const auto second = makeFactory();
    EXPECT_TRUE(serves(*second));
    EXPECT_TRUE(serves(*first));
}

TEST_F(SslTransportFactory, TransportOutlivesItsFactory) {
    Loopback loopback = connectLoopback();
    auto factory = makeFactory();
    const auto transport = factory->CreateSslTransportInputOutput(handOver(loopback.headUnit));
    factory.reset();
    ASSERT_TRUE(transport);
    EXPECT_TRUE(talks(*transport, std::move(loopback)));
}

TEST_F(SslTransportFactory, WrappingDoesNotWaitForThePhone) {
    const auto factory = makeFactory(60000);
    Loopback loopback = connectLoopback();
    const auto begin = Clock::now();
    const auto transport = factory->CreateSslTransportInputOutput(handOver(loopback.headUnit));
    EXPECT_TRUE(transport);
    EXPECT_LT(Clock::now() - begin, kPatience);
}

TEST_F(SslTransportFactory, HandshakeLimitIsTheGivenOne) {
    const auto factory = makeFactory(150);
    Loopback loopback = connectLoopback();
    const auto transport = factory->CreateSslTransportInputOutput(handOver(loopback.headUnit));
    const auto begin = Clock::now();
    char byte = 0;
    EXPECT_EQ(transport->read(&byte, 1), -1);
    EXPECT_GE(Clock::now() - begin, milliseconds(150));
    EXPECT_LT(Clock::now() - begin, milliseconds(4000));
}

TEST_F(SslTransportFactory, HandshakeLimitOfZeroMeansTheUsualOne) {
    const auto factory = makeFactory(0);
    EXPECT_TRUE(serves(*factory));
}

TEST_F(SslTransportFactory, DescriptorsAreBackAfterTwoHundredConnections) {
    const auto factory = makeFactory();
    ASSERT_TRUE(serves(*factory));
    const std::size_t before = countDescriptors();
    for (int i = 0; i < 200; ++i) {
        Loopback loopback = connectLoopback();
        const auto transport = factory->CreateSslTransportInputOutput(handOver(loopback.headUnit));
        ASSERT_TRUE(transport);
        if (i % 10 == 0) {
            EXPECT_TRUE(talks(*transport, std::move(loopback)));
        }
    }
    EXPECT_EQ(countDescriptors(), before);
}

}  // namespace
}  // namespace wpp_test
