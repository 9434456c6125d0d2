#include "Benchmarks/RoundTrip/Handshakers.h"

#include <unistd.h>

#include <array>

#include "Benchmarks/RoundTrip/ControlService.h"
#include "Benchmarks/RoundTrip/Support/Sockets.h"
#include "Benchmarks/RoundTrip/Support/Tcp.h"
#include "Benchmarks/RoundTrip/Support/TlsContext.h"

namespace bench {

namespace {

constexpr int kReadSize = 4096;

using namespace wifi_projection_protocol;

void serveOpenSsl(const TlsMaterial& material) {
    const SslContext context = makeContext(TLS_server_method(), material);
    const int listener = listenTcp();
    for (;;) {
        const int socket = acceptOne(listener);
        const Ssl ssl(SSL_new(context.get()));
        SSL_set_fd(ssl.get(), socket);
        std::array<char, kReadSize> bytes;
        if (SSL_accept(ssl.get()) == 1 && SSL_read(ssl.get(), bytes.data(), kReadSize) > 0) {
            SSL_shutdown(ssl.get());
        }
        close(socket);
    }
}

void startOurs(const TlsMaterial& material) {
    startProtocol(StartWifiProjectionProtocolSerializer({}, {}, {}, material.certificate, material.privateKey,
                                                        material.authority));
}

}  // namespace

Handshaker openSslHandshaker() {
    return {"openssl", serveOpenSsl};
}

Handshaker ourHandshaker() {
    return {"ours", [](const TlsMaterial&) { serveControlService(); }, startOurs};
}

}  // namespace bench
