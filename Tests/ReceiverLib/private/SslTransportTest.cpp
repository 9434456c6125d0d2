#include "private/SslTransport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <future>
#include <numeric>
#include <string>
#include <thread>

#include "Tests/ReceiverLib/Support/Loopback.h"
#include "Tests/ReceiverLib/Support/TlsPhone.h"
#include "private/SslContext.h"

namespace wpp_test {
namespace {

using simulator::CertificateAuthority;
using simulator::Usage;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using wifi_projection_protocol::FileDescriptor;
using wifi_projection_protocol::makeServerContext;
using wifi_projection_protocol::SslContext;
using wifi_projection_protocol::SslTimeLimits;

class SslTransport : public testing::Test {
protected:
    using Transport = std::unique_ptr<wifi_projection_protocol::TransportInputOutput>;

    SslContext makeContext(bool acceptAnyPhone = false) const {
        return makeServerContext({server.certificatePem, server.privateKeyPem, authority.caCertificatePem()},
                                 acceptAnyPhone, "service");
    }

    // The head unit's end; the phone's end is `socket`.
    Transport wrap(SslTimeLimits limits = {}) {
        Loopback loopback = connectLoopback();
        socket = std::move(loopback.phone);
        return wifi_projection_protocol::SslTransport::wrap(context.get(), handOver(loopback.headUnit),
                                                            limits);
    }

    TlsPhone makePhone(const TlsPhoneOptions& options) { return TlsPhone(std::move(socket), options); }

    TlsPhoneOptions goodPhone() const {
        return {authority.issue("phone", Usage::kClient), authority.caCertificatePem(), 0};
    }

    static std::future<int> readInBackground(wifi_projection_protocol::TransportInputOutput& transport) {
        return std::async(std::launch::async, [&transport] {
            char byte = 0;
            return transport.read(&byte, 1);
        });
    }

    // How a read goes while the phone does as `options` say.
    int readFrom(const TlsPhoneOptions& options) {
        const Transport transport = wrap();
        auto result = readInBackground(*transport);
        TlsPhone phone = makePhone(options);
        if (phone.handshake()) {
            phone.send("x");
        }
        const int count = result.get();
        failureReason = phone.failureReason();
        return count;
    }

    // A transport and a phone whose handshake is done.
    struct Pair {
        Transport transport;
        TlsPhone phone;
    };
    Pair makePair(SslTimeLimits limits = {}) {
        Transport transport = wrap(limits);
        auto result = readInBackground(*transport);
        TlsPhone phone = makePhone(goodPhone());
        EXPECT_TRUE(phone.handshake());
        EXPECT_TRUE(phone.send("x"));
        EXPECT_EQ(result.get(), 1);
        return {std::move(transport), std::move(phone)};
    }

    CertificateAuthority authority;
    simulator::IssuedCertificate server = authority.issue("head unit", Usage::kServer);
    SslContext context = makeContext();
    FileDescriptor socket;
    int failureReason = 0;
};

TEST_F(SslTransport, GoodPhoneIsServedBothWays) {
    Pair pair = makePair();
    ASSERT_TRUE(pair.phone.send("hello"));
    char text[16] = {};
    EXPECT_EQ(pair.transport->read(text, sizeof text), 5);
    EXPECT_STREQ(text, "hello");
    EXPECT_EQ(pair.transport->write("answer", 6), 6);
    EXPECT_EQ(pair.phone.receive(), "answer");
    EXPECT_EQ(pair.phone.version(), TLS1_3_VERSION);
}

TEST_F(SslTransport, Tls12IsServedToo) {
    TlsPhoneOptions options = goodPhone();
    options.maxVersion = TLS1_2_VERSION;
    EXPECT_EQ(readFrom(options), 1);
}

TEST_F(SslTransport, Tls11IsRefused) {
    TlsPhoneOptions options = goodPhone();
    options.maxVersion = TLS1_1_VERSION;
    EXPECT_EQ(readFrom(options), -1);
    EXPECT_EQ(failureReason, SSL_R_TLSV1_ALERT_PROTOCOL_VERSION);
}

TEST_F(SslTransport, PhoneWithoutACertificateIsTurnedAway) {
    EXPECT_EQ(readFrom({}), -1);
}

TEST_F(SslTransport, PhoneWithoutACertificateIsLetInWhereAnyPhoneIs) {
    context = makeContext(true);
    EXPECT_EQ(readFrom({}), 1);
}

TEST_F(SslTransport, PhoneOfAForeignAuthorityIsTurnedAway) {
    const CertificateAuthority foreign;
    EXPECT_EQ(readFrom({foreign.issue("phone", Usage::kClient), {}, 0}), -1);
}

TEST_F(SslTransport, PhoneOfAForeignAuthorityIsTurnedAwayEvenWhereAnyPhoneIsLetIn) {
    context = makeContext(true);
    const CertificateAuthority foreign;
    EXPECT_EQ(readFrom({foreign.issue("phone", Usage::kClient), {}, 0}), -1);
}

TEST_F(SslTransport, SelfSignedPhoneIsTurnedAway) {
    EXPECT_EQ(readFrom({CertificateAuthority::selfSigned("phone", Usage::kClient), {}, 0}), -1);
}

TEST_F(SslTransport, PhoneWithAnExpiredCertificateIsTurnedAway) {
    const simulator::Validity past{std::chrono::hours(-2), std::chrono::hours(-1)};
    EXPECT_EQ(readFrom({authority.issue("phone", Usage::kClient, past), {}, 0}), -1);
}

TEST_F(SslTransport, PhoneWithACertificateOfTheFutureIsTurnedAway) {
    const simulator::Validity future{std::chrono::hours(1), std::chrono::hours(2)};
    EXPECT_EQ(readFrom({authority.issue("phone", Usage::kClient, future), {}, 0}), -1);
}

TEST_F(SslTransport, CertificateOfAServerDoesNotMakeAPhone) {
    EXPECT_EQ(readFrom({authority.issue("phone", Usage::kServer), {}, 0}), -1);
}

TEST_F(SslTransport, PhonesNeedNoCertificateWithoutAnAuthority) {
    context = makeServerContext({server.certificatePem, server.privateKeyPem, ""}, false, "service");
    EXPECT_EQ(readFrom({}), 1);
}

TEST_F(SslTransport, PlainTextEndsTheTransport) {
    const Transport transport = wrap();
    ASSERT_EQ(::send(socket.get(), "GET / HTTP/1.0\r\n\r\n", 18, MSG_NOSIGNAL), 18);
    char byte = 0;
    EXPECT_EQ(transport->read(&byte, 1), -1);
    EXPECT_EQ(transport->write("x", 1), -1);
}

TEST_F(SslTransport, SilentPhoneIsGivenUpAfterTheHandshakeLimit) {
    const Transport transport = wrap({milliseconds(150), milliseconds(5000)});
    const auto begin = Clock::now();
    char byte = 0;
    EXPECT_EQ(transport->read(&byte, 1), -1);
    EXPECT_GE(Clock::now() - begin, milliseconds(150));
    EXPECT_LT(Clock::now() - begin, kPatience);
}

TEST_F(SslTransport, HandshakeLimitCountsTheWholeHandshakeAndNotEachByte) {
    const Transport transport = wrap({milliseconds(200), milliseconds(5000)});
    const auto begin = Clock::now();
    auto result = readInBackground(*transport);
    // The head of a handshake record of 16000 bytes, and then one byte at a time.
    ASSERT_EQ(::send(socket.get(), "\x16\x03\x01\x3E\x80\x01\x00\x3E\x7C", 9, MSG_NOSIGNAL), 9);
    while (result.wait_for(milliseconds(5)) != std::future_status::ready &&
           Clock::now() - begin < kPatience) {
        ::send(socket.get(), "x", 1, MSG_NOSIGNAL);
    }
    EXPECT_EQ(result.get(), -1);
    EXPECT_GE(Clock::now() - begin, milliseconds(200));
    EXPECT_LT(Clock::now() - begin, kPatience);
}

TEST_F(SslTransport, FirstWriteRunsTheHandshakeToo) {
    const Transport transport = wrap();
    auto result = std::async(std::launch::async, [&] { return transport->write("first", 5); });
    TlsPhone phone = makePhone(goodPhone());
    ASSERT_TRUE(phone.handshake());
    EXPECT_EQ(phone.receive(), "first");
    EXPECT_EQ(result.get(), 5);
}

TEST_F(SslTransport, ReaderAndWriterThatBothComeFirstAreBothServed) {
    const Transport transport = wrap();
    auto reading = readInBackground(*transport);
    auto writing = std::async(std::launch::async, [&] { return transport->write("first", 5); });
    TlsPhone phone = makePhone(goodPhone());
    ASSERT_TRUE(phone.handshake());
    ASSERT_TRUE(phone.send("x"));
    EXPECT_EQ(phone.receive(), "first");
    EXPECT_EQ(reading.get(), 1);
    EXPECT_EQ(writing.get(), 5);
}

TEST_F(SslTransport, CloseWakesAReader) {
    Pair pair = makePair();
    auto result = readInBackground(*pair.transport);
    EXPECT_EQ(result.wait_for(milliseconds(20)), std::future_status::timeout);
    pair.transport->close();
    ASSERT_EQ(result.wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(result.get(), -1);
}

TEST_F(SslTransport, CloseWakesAHandshake) {
    const Transport transport = wrap({kPatience * 10, kPatience});
    auto result = readInBackground(*transport);
    EXPECT_EQ(result.wait_for(milliseconds(20)), std::future_status::timeout);
    transport->close();
    ASSERT_EQ(result.wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(result.get(), -1);
}

TEST_F(SslTransport, CloseWakesAWriter) {
    Pair pair = makePair({milliseconds(5000), kPatience * 10});
    const std::string block(1 << 20, 'x');
    auto result = std::async(std::launch::async, [&] {
        while (pair.transport->write(block.data(), static_cast<unsigned>(block.size())) > 0) {
        }
    });
    EXPECT_EQ(result.wait_for(milliseconds(50)), std::future_status::timeout);
    pair.transport->close();
    EXPECT_EQ(result.wait_for(kPatience), std::future_status::ready);
}

TEST_F(SslTransport, WriteToAPhoneThatDoesNotReadFailsAfterTheLimit) {
    Pair pair = makePair({milliseconds(5000), milliseconds(150)});
    const std::string block(1 << 20, 'x');
    auto begin = Clock::now();
    while (pair.transport->write(block.data(), static_cast<unsigned>(block.size())) > 0) {
        begin = Clock::now();
    }
    EXPECT_GE(Clock::now() - begin, milliseconds(150));
    EXPECT_LT(Clock::now() - begin, kPatience);
    char byte = 0;
    EXPECT_EQ(pair.transport->read(&byte, 1), -1);
}

TEST_F(SslTransport, SecondWriterWaitsForItsTurnNoLongerThanTheLimit) {
    Pair pair = makePair({milliseconds(5000), milliseconds(300)});
    const std::string block(64 << 20, 'x');
    auto first = std::async(std::launch::async, [&] {
        return pair.transport->write(block.data(), static_cast<unsigned>(block.size()));
    });
    EXPECT_EQ(first.wait_for(milliseconds(50)), std::future_status::timeout);
    const auto begin = Clock::now();
    EXPECT_EQ(pair.transport->write("x", 1), -1);
    EXPECT_LT(Clock::now() - begin, kPatience);
    EXPECT_EQ(first.get(), -1);
}

TEST_F(SslTransport, EveryCallAfterCloseFails) {
    Pair pair = makePair();
    pair.transport->close();
    pair.transport->close();
    char byte = 0;
    EXPECT_EQ(pair.transport->read(&byte, 1), -1);
    EXPECT_EQ(pair.transport->write("x", 1), -1);
}

TEST_F(SslTransport, CloseBeforeTheHandshakeFailsEveryCall) {
    const Transport transport = wrap();
    transport->close();
    char byte = 0;
    EXPECT_EQ(transport->read(&byte, 1), -1);
    EXPECT_EQ(transport->write("x", 1), -1);
}

TEST_F(SslTransport, PhoneHearsThatTheEndIsMeant) {
    Pair pair = makePair();
    pair.transport->close();
    EXPECT_EQ(pair.phone.receive(), "");
    EXPECT_TRUE(pair.phone.hasHeardGoodbye());
}

TEST_F(SslTransport, EndByThePhoneEndsTheTransport) {
    Pair pair = makePair();
    pair.phone.close();
    char byte = 0;
    EXPECT_EQ(pair.transport->read(&byte, 1), -1);
    EXPECT_EQ(pair.transport->write("x", 1), -1);
}

TEST_F(SslTransport, PhoneThatVanishesEndsTheTransport) {
    Pair pair = makePair();
    pair.phone.vanish();
    char byte = 0;
    EXPECT_EQ(pair.transport->read(&byte, 1), -1);
}

TEST_F(SslTransport, WritingToAPhoneThatVanishedRaisesNoSignal) {
    ASSERT_NE(std::signal(SIGPIPE, SIG_DFL), SIG_ERR);
    Pair pair = makePair();
    pair.phone.vanish();
    const auto begin = Clock::now();
    while (pair.transport->write("x", 1) > 0 && Clock::now() - begin < kPatience) {
        std::this_thread::yield();
    }
    EXPECT_EQ(pair.transport->write("x", 1), -1);
}

TEST_F(SslTransport, NothingIsReadOrWrittenForALengthOfZero) {
    Pair pair = makePair();
    EXPECT_EQ(pair.transport->read(nullptr, 0), 0);
    EXPECT_EQ(pair.transport->write(nullptr, 0), 0);
}

TEST_F(SslTransport, WriteThatIsLargerThanAResultCanSayFails) {
    Pair pair = makePair();
    EXPECT_EQ(pair.transport->write("x", 0x80000000U), -1);
}

TEST_F(SslTransport, ReadingAndWritingAtOnceKeepsEveryByte) {
    Pair pair = makePair();
    constexpr std::size_t kTotal = 4 << 20;
    constexpr unsigned kPiece = 1000;
    const std::string block(kPiece, 'x');
    // The phone sends back what it hears, so both directions are busy at once.
    std::thread echo([&] {
        for (std::string bytes = pair.phone.receive(); !bytes.empty() && pair.phone.send(bytes);) {
            bytes = pair.phone.receive();
        }
    });
    auto reading = std::async(std::launch::async, [&] {
        std::size_t total = 0;
        char bytes[4096];
        for (int count = 0; count >= 0 && total < kTotal;
             total += static_cast<std::size_t>(std::max(count, 0))) {
            count = pair.transport->read(bytes, sizeof bytes);
        }
        return total;
    });
    const auto write = [&] {
        for (std::size_t sent = 0; sent < kTotal / 2 && pair.transport->write(block.data(), kPiece) > 0;) {
            sent += kPiece;
        }
    };
    std::thread first(write);
    std::thread second(write);
    first.join();
    second.join();
    EXPECT_GE(reading.get(), kTotal);
    pair.transport->close();
    echo.join();
}

TEST_F(SslTransport, CloseFromAnotherThreadAtAnyMomentIsSafe) {
    for (int round = 0; round < 30; ++round) {
        const Transport transport = wrap();
        auto reading = readInBackground(*transport);
        TlsPhone phone = makePhone(goodPhone());
        std::thread closer([&] {
            std::this_thread::sleep_for(std::chrono::microseconds(100 * round));  // another moment each
            transport->close();
        });
        phone.handshake();
        EXPECT_EQ(reading.get(), -1);
        closer.join();
    }
}

TEST_F(SslTransport, SocketBecomesNonBlockingPromptAndCloseOnExec) {
    Loopback loopback = connectLoopback();
    const int fd = handOver(loopback.headUnit);
    const auto transport = wifi_projection_protocol::SslTransport::wrap(context.get(), fd, {});
    ASSERT_TRUE(transport);
    EXPECT_NE(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
    int noDelay = 0;
    int keepAlive = 0;
    socklen_t size = sizeof noDelay;
    ::getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &noDelay, &size);
    ::getsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &keepAlive, &size);
    EXPECT_NE(noDelay, 0);
    EXPECT_NE(keepAlive, 0);
}

TEST_F(SslTransport, SocketIsClosedWithTheTransport) {
    Loopback loopback = connectLoopback();
    const int fd = handOver(loopback.headUnit);
    auto transport = wifi_projection_protocol::SslTransport::wrap(context.get(), fd, {});
    transport->close();
    EXPECT_TRUE(isOpen(fd));
    transport.reset();
    EXPECT_FALSE(isOpen(fd));
}

TEST_F(SslTransport, WhatIsNoStreamSocketIsNotWrapped) {
    const FileDescriptor datagrams(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const FileDescriptor file(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    for (const int fd : {datagrams.get(), file.get()}) {
        EXPECT_EQ(wifi_projection_protocol::SslTransport::wrap(context.get(), fd, {}), nullptr);
        EXPECT_TRUE(isOpen(fd));
        EXPECT_EQ(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    }
    EXPECT_EQ(wifi_projection_protocol::SslTransport::wrap(context.get(), -1, {}), nullptr);
}

TEST_F(SslTransport, RenegotiationIsRefused) {
    const Transport transport = wrap();
    auto reading = readInBackground(*transport);
    TlsPhoneOptions options = goodPhone();
    options.maxVersion = TLS1_2_VERSION;
    TlsPhone phone = makePhone(options);
    ASSERT_TRUE(phone.handshake());
    ASSERT_TRUE(phone.send("x"));
    ASSERT_EQ(reading.get(), 1);
    auto serving = readInBackground(*transport);
    EXPECT_FALSE(phone.renegotiate());
    transport->close();
    serving.get();
}

}  // namespace
}  // namespace wpp_test
