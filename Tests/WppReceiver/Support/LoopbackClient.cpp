#include "Tests/WppReceiver/Support/LoopbackClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

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

std::uint16_t portOf(const QMDescriptor& socket) {
    sockaddr_in address{};
    socklen_t length = sizeof(address);
    getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

std::uint16_t freePort() {
    return portOf(boundSocket("0.0.0.0", 0));
}

}  // namespace wpp_test
