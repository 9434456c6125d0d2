#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <memory>
#include <string>

#include "Simulator/private/Io/ByteStream.h"
#include "Simulator/private/Io/LocalSocket.h"
#include "Tests/Simulator/TlsServer.h"

namespace simulator {

/// A TCP server on a free loopback port, in the test's own loop, with or without TLS on top.
class TlsEndpoint {
public:
    /// @param server the TLS of each connection; null takes the bytes as they are.
    TlsEndpoint(PollLoop& pollLoop, TlsServer* server) : loop(pollLoop), tls(server) {
        listener.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::bind(listener.get(), generic(address), sizeof(address)), 0);
        EXPECT_EQ(::listen(listener.get(), 4), 0);
        socklen_t size = sizeof(address);
        EXPECT_EQ(::getsockname(listener.get(), generic(address), &size), 0);
        port = ntohs(address.sin_port);
        loop.watch(listener.get(), POLLIN, [this](short) { accept(); });
    }
    ~TlsEndpoint() { loop.forget(listener.get()); }
    TlsEndpoint(const TlsEndpoint&) = delete;
    TlsEndpoint& operator=(const TlsEndpoint&) = delete;

    /// Sends plain bytes through TLS.
    void send(const std::string& plain) {
        tls->write(plain);
        stream->send(tls->takeOutgoing());
    }

    /// What has arrived, in plain.
    const std::string& received() const { return tls != nullptr ? tls->received : raw; }

    std::uint16_t port = 0;
    std::string peerAddress;
    std::string raw;  ///< bytes as they came
    bool closed = false;
    std::unique_ptr<ByteStream> stream;

private:
    static sockaddr* generic(sockaddr_in& address) {
        return static_cast<sockaddr*>(static_cast<void*>(&address));
    }

    void accept() {
        sockaddr_in peer{};
        socklen_t size = sizeof(peer);
        UniqueFd fd(::accept4(listener.get(), generic(peer), &size, SOCK_CLOEXEC | SOCK_NONBLOCK));
        char text[INET_ADDRSTRLEN] = {};
        ::inet_ntop(AF_INET, &peer.sin_addr, text, sizeof(text));
        peerAddress = text;
        stream = std::make_unique<ByteStream>(
            loop, std::move(fd), [this](std::string_view bytes) { onBytes(bytes); },
            [this] { closed = true; });
    }

    void onBytes(std::string_view bytes) {
        raw += bytes;
        if (tls != nullptr) {
            tls->feed(bytes);
            stream->send(tls->takeOutgoing());
        }
    }

    PollLoop& loop;
    TlsServer* const tls;
    UniqueFd listener;
};

}  // namespace simulator
