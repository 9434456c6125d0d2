#include "Tests/Simulator/Strangers/Wire.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace simulator {

namespace {

constexpr std::uint16_t kReceiverPort = 30516;
constexpr const char* kRfcommSocket = "/SIM_SOCKET_RFCOMM";
constexpr time_t kSendLimitSeconds = 30;

void require(bool condition, const char* step) {
    if (!condition) {
        throw std::system_error(errno, std::generic_category(), step);
    }
}

template <typename Address>
const sockaddr* generic(const Address& address) {
    return static_cast<const sockaddr*>(static_cast<const void*>(&address));
}

sockaddr_in addressOf(const std::string& host, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    require(::inet_pton(AF_INET, host.c_str(), &address.sin_addr) == 1, "inet_pton");
    return address;
}

UniqueFd openSocket(int family) {
    UniqueFd fd(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    require(static_cast<bool>(fd), "socket");
    const timeval limit{kSendLimitSeconds, 0};
    require(::setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit)) == 0, "SO_SNDTIMEO");
    return fd;
}

/// The other end's buffer goes by the size of a segment.
void takeLittle(int fd) {
    constexpr int kBuffer = 4096;
    constexpr int kSegment = 536;
    require(::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kBuffer, sizeof(kBuffer)) == 0, "SO_RCVBUF");
    require(::setsockopt(fd, IPPROTO_TCP, TCP_MAXSEG, &kSegment, sizeof(kSegment)) == 0, "TCP_MAXSEG");
}

}  // namespace

Wire Wire::overTcp(const std::string& ownAddress, Room room) {
    UniqueFd fd = openSocket(AF_INET);
    if (room == Room::kLittle) {
        takeLittle(fd.get());
    }
    const int on = 1;
    require(::setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on)) == 0, "TCP_NODELAY");
    const sockaddr_in own = addressOf(ownAddress, 0);
    require(::bind(fd.get(), generic(own), sizeof(own)) == 0, "bind");
    const sockaddr_in receiver = addressOf("127.0.0.1", kReceiverPort);
    require(::connect(fd.get(), generic(receiver), sizeof(receiver)) == 0, "connect");
    return Wire(std::move(fd));
}

Wire Wire::overRfcomm(const std::string& directory, std::uint8_t device) {
    UniqueFd fd = openSocket(AF_UNIX);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = directory + kRfcommSocket;
    require(path.copy(&address.sun_path[0], sizeof(address.sun_path) - 1) == path.size(), "socket path");
    require(::connect(fd.get(), generic(address), sizeof(address)) == 0, "connect");
    Wire wire(std::move(fd));
    wire.send(std::string(1, static_cast<char>(device)));
    return wire;
}

bool Wire::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

void Wire::sendSlowly(std::string_view bytes, Milliseconds pause) {
    for (std::size_t at = 0; at < bytes.size() && !ended; ++at) {
        send(bytes.substr(at, 1));
        const Deadline next(pause);
        while (!ended && !next.passed()) {
            receive(next.remaining());
        }
    }
}

std::string Wire::receive(Milliseconds limit) {
    pollfd watched{fd.get(), POLLIN, 0};
    if (ended || ::poll(&watched, 1, static_cast<int>(limit.count())) <= 0) {
        return {};
    }
    std::array<char, 16384> chunk{};
    const ssize_t count = ::recv(fd.get(), chunk.data(), chunk.size(), 0);
    if (count <= 0) {
        ended = true;
        return {};
    }
    const std::string bytes(chunk.data(), static_cast<std::size_t>(count));
    all += bytes;
    return bytes;
}

void Wire::awaitEnd(Milliseconds limit) {
    const Deadline deadline(limit);
    while (!ended && !deadline.passed()) {
        receive(deadline.remaining());
    }
}

void Wire::awaitEndUnread(Milliseconds limit) {
    pollfd watched{fd.get(), POLLRDHUP, 0};
    ended = ended || ::poll(&watched, 1, static_cast<int>(limit.count())) > 0;
}

void Wire::endSending() {
    ::shutdown(fd.get(), SHUT_WR);
}

void Wire::reset() {
    const linger atOnce{1, 0};
    ::setsockopt(fd.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
    fd.reset();
    ended = true;
}

}  // namespace simulator
