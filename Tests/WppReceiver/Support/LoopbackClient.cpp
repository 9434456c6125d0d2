#include "Tests/WppReceiver/Support/LoopbackClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace wpp_test {

namespace {

sockaddr_in addressOf(const std::string& host, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, host.c_str(), &address.sin_addr);
    return address;
}

QMDescriptor boundSocket(const std::string& host, std::uint16_t port) {
    QMDescriptor result(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int enabled = 1;
    setsockopt(result.get(), SOL_SOCKET, SO_REUSEADDR, &enabled, sizeof(enabled));
    sockaddr_in address = addressOf(host, port);
    if (bind(result.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        result.reset();
    }
    return result;
}

}  // namespace

QMDescriptor connectTo(std::uint16_t port, const std::string& fromAddress) {
    QMDescriptor result = boundSocket(fromAddress, 0);
    sockaddr_in address = addressOf("127.0.0.1", port);
    if (connect(result.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        result.reset();
    }
    return result;
}

QMDescriptor listenOn(std::uint16_t port) {
    QMDescriptor result = boundSocket("0.0.0.0", port);
    if (result.isValid() && listen(result.get(), 1) != 0) {
        result.reset();
    }
    return result;
}

std::uint16_t freePort() {
    constexpr int kFirst = 20000;
    constexpr int kCount = 10000;
    for (int i = 0;; ++i) {
        const auto port = static_cast<std::uint16_t>(kFirst + (getpid() * 16 + i) % kCount);
        if (boundSocket("0.0.0.0", port).isValid()) {
            return port;
        }
    }
}

}  // namespace wpp_test
