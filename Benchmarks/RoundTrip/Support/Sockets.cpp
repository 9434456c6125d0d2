#include "Benchmarks/RoundTrip/Support/Sockets.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

namespace bench {

namespace {

using namespace std::chrono_literals;

constexpr auto kConnectLimit = 10s;
constexpr auto kConnectPause = 1ms;

sockaddr_un addressOf(const char* name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, name, sizeof(address.sun_path) - 1);
    return address;
}

int openLocal() {
    return check(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
}

}  // namespace

int check(int result, const char* call) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), call);
    }
    return result;
}

int listenLocal(const char* name) {
    const sockaddr_un address = addressOf(name);
    const int listener = openLocal();
    check(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), "bind");
    check(listen(listener, 1), "listen");
    return listener;
}

int connectLocal(const char* name) {
    const sockaddr_un address = addressOf(name);
    const auto deadline = std::chrono::steady_clock::now() + kConnectLimit;
    const int socket = openLocal();
    while (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            close(socket);
            throw std::runtime_error(std::string("nobody listens on ") + name);
        }
        std::this_thread::sleep_for(kConnectPause);
    }
    return socket;
}

int acceptOne(int listener) {
    return check(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), "accept");
}

void sendAll(int socket, const void* data, std::size_t length) {
    const auto sent = send(socket, data, length, MSG_NOSIGNAL);
    if (sent < 0 || static_cast<std::size_t>(sent) != length) {
        throw std::runtime_error("send: the other end is gone");
    }
}

void receiveAll(int socket, void* data, std::size_t length) {
    const auto received = recv(socket, data, length, MSG_WAITALL);
    if (received < 0 || static_cast<std::size_t>(received) != length) {
        throw std::runtime_error("recv: the other end is gone");
    }
}

AckFrame makeAck() {
    AckFrame ack{};
    const std::uint32_t length = 1;
    std::memcpy(ack.bytes, &length, sizeof(length));
    ack.bytes[kPrefixSize] = 1;
    return ack;
}

}  // namespace bench
