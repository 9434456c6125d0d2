#include "Simulator/private/Peers/TcpLink.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace simulator {

namespace {

constexpr const char* kPlainTextGreeting = "GET / HTTP/1.1\r\nHost: head-unit\r\n\r\n";

sockaddr_in addressOf(const std::string& host, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    if (::inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) {
        throw std::runtime_error("not an IPv4 address: " + host);
    }
    return address;
}

const sockaddr* generic(const sockaddr_in& address) {
    return static_cast<const sockaddr*>(static_cast<const void*>(&address));
}

void require(bool condition, const char* step) {
    if (!condition) {
        throw std::system_error(errno, std::generic_category(), step);
    }
}

UniqueFd openSocket(const TcpLink::Address& address) {
    const sockaddr_in remote = addressOf(address.host, address.port);
    UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    require(static_cast<bool>(fd), "socket");
    const int on = 1;
    ::setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    if (!address.bindTo.empty()) {
        const sockaddr_in local = addressOf(address.bindTo, 0);
        require(::bind(fd.get(), generic(local), sizeof(local)) == 0, "bind");
    }
    require(::connect(fd.get(), generic(remote), sizeof(remote)) == 0 || errno == EINPROGRESS, "connect");
    return fd;
}

int pendingError(int fd) {
    int error = 0;
    socklen_t size = sizeof(error);
    ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

}  // namespace

TcpLink::TcpLink(PollLoop& pollLoop, const Address& address, TcpManner tcpManner,
                 const TlsCredentials& credentials, Handlers linkHandlers)
    : loop(pollLoop),
      manner(tcpManner),
      handlers(std::move(linkHandlers)),
      session(credentials),
      connecting(openSocket(address)) {
    loop.watch(connecting.get(), POLLOUT, [this](short) { onConnectDone(); });
}

TcpLink::~TcpLink() {
    if (connecting) {
        loop.forget(connecting.get());
    }
}

void TcpLink::send(std::string_view plain) {
    session.write(plain);
    flush();
}

void TcpLink::close() {
    session.close();
    flush();
}

void TcpLink::onConnectDone() {
    loop.forget(connecting.get());
    const int error = pendingError(connecting.get());
    if (error != 0) {
        end("connect: " + std::generic_category().message(error));
        return;
    }
    stream = std::make_unique<ByteStream>(
        loop, std::move(connecting), [this](std::string_view bytes) { onBytes(bytes); },
        [this] { end("closed by the receiver"); });
    handlers.connected();
    begin();
}

void TcpLink::begin() {
    if (manner == TcpManner::kTls) {
        flush();
    } else if (manner == TcpManner::kPlainText) {
        stream->send(kPlainTextGreeting);
    } else if (manner == TcpManner::kHalfHello) {
        const std::string greeting = session.takeOutgoing();
        stream->send(std::string_view(greeting).substr(0, greeting.size() / 2));
    }
}

void TcpLink::onBytes(std::string_view bytes) {
    if (manner != TcpManner::kTls) {
        return;
    }
    const std::string plain = session.feed(bytes);
    flush();
    if (!secured && session.established()) {
        secured = true;
        handlers.secured(session.version());
    }
    if (!plain.empty()) {
        handlers.received(plain);
    }
    if (session.failure()) {
        end("TLS: " + *session.failure());
    } else if (session.ended()) {
        end("ended by the receiver");
    }
}

void TcpLink::flush() {
    if (stream && manner == TcpManner::kTls) {
        stream->send(session.takeOutgoing());
    }
}

/// Nothing of the link is touched after the handler, which may destroy it.
void TcpLink::end(const std::string& reason) {
    if (stream) {
        stream->close();
    }
    const auto ended = handlers.ended;
    ended(reason);
}

}  // namespace simulator
