#include "Benchmarks/RoundTrip/Support/Handshaker.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Benchmarks/RoundTrip/Support/Processor.h"
#include "Benchmarks/RoundTrip/Support/ServerProcess.h"
#include "Benchmarks/RoundTrip/Support/Tcp.h"
#include "Benchmarks/RoundTrip/Support/TlsContext.h"
#include "Simulator/CertificateAuthority.h"
#include "Tests/Support/OwnNetwork.h"

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;
using TimePoint = std::chrono::time_point<Clock, std::chrono::duration<double>>;

constexpr unsigned kFirstHost = 2;  // each client has an address of its own, as phones have
constexpr double kWarmUp = 0.2;     // as a part of the time

/// A connection whose server has to finish its part too: it reads four bytes, a length that no phone may announce,
/// and closes.
void shakeHands(SSL_CTX* context, unsigned host) {
    constexpr unsigned char kForbiddenLength[] = {0xFF, 0xFF, 0xFF, 0xFF};
    const int socket = connectTcp(host);
    const Ssl ssl(SSL_new(context));
    SSL_set_fd(ssl.get(), socket);
    const bool done =
        SSL_connect(ssl.get()) == 1 && SSL_write(ssl.get(), kForbiddenLength, sizeof(kForbiddenLength)) > 0;
    char nothing = 0;
    static_cast<void>(SSL_read(ssl.get(), &nothing, sizeof(nothing)));
    close(socket);
    if (!done) {
        throw std::runtime_error("a handshake failed");
    }
}

int shakeHandsUntil(TimePoint end, SSL_CTX* context, unsigned host) {
    int handshakes = 0;
    do {
        shakeHands(context, host);
        ++handshakes;
    } while (Clock::now() < end);
    return handshakes;
}

struct Handshakes {
    double count = 0;
    double seconds = 0;
};

/// Handshakes of so many clients at once.
Handshakes shakeManyHands(unsigned clients, SSL_CTX* context, double seconds) {
    const auto begin = Clock::now();
    const TimePoint end = begin + std::chrono::duration<double>(seconds);
    std::atomic<int> handshakes{0};
    std::atomic<bool> failed{false};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < clients; ++i) {
        threads.emplace_back([&, i] {
            try {
                handshakes += shakeHandsUntil(end, context, kFirstHost + i);
            } catch (const std::exception&) {
                failed = true;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    if (failed) {
        throw std::runtime_error("a handshake failed");
    }
    return {static_cast<double>(handshakes), std::chrono::duration<double>(Clock::now() - begin).count()};
}

void measureHandshakes(const Handshaker& handshaker, const Run& run, unsigned clients,
                       const char* parameter) {
    const simulator::CertificateAuthority authority;
    const auto ofServer = authority.issue("receiver", simulator::Usage::kServer);
    const auto ofClient = authority.issue("phone", simulator::Usage::kClient);
    const TlsMaterial material{ofServer.certificatePem, ofServer.privateKeyPem, authority.caCertificatePem()};
    const SslContext context = makeContext(
        TLS_client_method(), {ofClient.certificatePem, ofClient.privateKeyPem, authority.caCertificatePem()});
    const ServerProcess server([&] { handshaker.serve(material); });
    handshaker.prepare(material);
    shakeManyHands(clients, context.get(), run.seconds * kWarmUp);
    const double before = processorTime(server.id());
    const Handshakes done = shakeManyHands(clients, context.get(), run.seconds);
    const double spent = processorTime(server.id()) - before;
    printSample(run, "tls-handshakes", parameter, "handshakes/s", "higher", done.count / done.seconds);
    printSample(run, "tls-handshake-cpu", parameter, "ns", "lower", spent / done.count);
}

}  // namespace

Case handshakeCase(const Handshaker& handshaker) {
    return {"handshake", handshaker.name, [handshaker](const Run& run) {
                static_cast<void>(wpp_test::enterOwnNetwork());
                measureHandshakes(handshaker, run, 1, "1 client");
                useAllProcessors();
                measureHandshakes(handshaker, run, 4, "4 clients");
            }};
}

}  // namespace bench
