#include "Benchmarks/RoundTrip/Foreign/AsioServers.h"

#include <asio.hpp>
#include <asio/ssl.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "Benchmarks/RoundTrip/Support/Tcp.h"
#include "Benchmarks/RoundTrip/Support/TlsContext.h"

namespace bench {

namespace {

using asio::ip::tcp;

tcp::acceptor makeAcceptor(asio::io_context& loop) {
    return tcp::acceptor(loop, tcp::v4(), listenTcp());
}

void acceptAndClose(tcp::acceptor& acceptor) {
    acceptor.async_accept([&acceptor](const asio::error_code&, tcp::socket socket) {
        socket.close();
        acceptAndClose(acceptor);
    });
}

void serveAccept() {
    asio::io_context loop(1);
    tcp::acceptor acceptor = makeAcceptor(loop);
    acceptAndClose(acceptor);
    loop.run();
}

constexpr std::size_t kReadSize = 4096;

/// One client, from its handshake to its first bytes; lives as long as one of its operations is under way.
class Visitor : public std::enable_shared_from_this<Visitor> {
public:
    Visitor(tcp::socket socket, asio::ssl::context& context) : stream(std::move(socket), context) {}

    void start() {
        stream.async_handshake(decltype(stream)::server,
                               [self = shared_from_this()](const asio::error_code& error) {
                                   if (!error) {
                                       self->read();
                                   }
                               });
    }

private:
    void read() {
        stream.async_read_some(asio::buffer(bytes),
                               [self = shared_from_this()](const asio::error_code&, std::size_t) {
                                   SSL_shutdown(self->stream.native_handle());
                               });
    }

    asio::ssl::stream<tcp::socket> stream;
    std::array<char, kReadSize> bytes{};
};

void acceptAndShakeHands(tcp::acceptor& acceptor, asio::ssl::context& context) {
    acceptor.async_accept([&acceptor, &context](const asio::error_code& error, tcp::socket socket) {
        if (!error) {
            std::make_shared<Visitor>(std::move(socket), context)->start();
        }
        acceptAndShakeHands(acceptor, context);
    });
}

void serveHandshakes(const TlsMaterial& material) {
    asio::io_context loop;
    tcp::acceptor acceptor = makeAcceptor(loop);
    asio::ssl::context context(makeContext(TLS_server_method(), material).release());
    acceptAndShakeHands(acceptor, context);
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < std::max(1U, std::thread::hardware_concurrency()); ++i) {
        threads.emplace_back([&loop] { loop.run(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace

Acceptor asioAcceptor() {
    return {"asio", serveAccept};
}

Handshaker asioHandshaker() {
    return {"asio", serveHandshakes};
}

}  // namespace bench
