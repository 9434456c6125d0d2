#include "Benchmarks/RoundTrip/Support/Tcp.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>

#include "Benchmarks/RoundTrip/Support/Sockets.h"

namespace bench {

namespace {

using namespace std::chrono_literals;

constexpr auto kConnectLimit = 10s;
constexpr std::uint32_t kLoopbackNetwork = 0x7F000000;

sockaddr_in addressOf(std::uint32_t host, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(host);
    return address;
}

const sockaddr* plain(const sockaddr_in& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

int openTcp() {
    return check(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
}

void bindTo(int socket, const sockaddr_in& address) {
    check(bind(socket, plain(address), sizeof(address)), "bind");
}

int openFrom(unsigned host) {
    const int socket = openTcp();
    const linger reset{1, 0};
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    setsockopt(socket, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &on, sizeof(on));
    bindTo(socket, addressOf(kLoopbackNetwork + host, 0));
    return socket;
}

}  // namespace

int listenTcp() {
    const int socket = openTcp();
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    bindTo(socket, addressOf(INADDR_ANY, kTcpPort));
    check(listen(socket, kTcpBacklog), "listen");
    return socket;
}

int connectTcp(unsigned host) {
    const sockaddr_in server = addressOf(INADDR_LOOPBACK, kTcpPort);
    const auto deadline = std::chrono::steady_clock::now() + kConnectLimit;
    for (;;) {
        const int socket = openFrom(host);
        if (connect(socket, plain(server), sizeof(server)) == 0) {
            return socket;
        }
        close(socket);
        if (std::chrono::steady_clock::now() > deadline) {
            throw std::runtime_error("nobody listens on the TCP port");
        }
        std::this_thread::sleep_for(1ms);
    }
}

}  // namespace bench
