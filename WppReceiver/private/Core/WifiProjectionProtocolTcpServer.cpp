#include "Core/WifiProjectionProtocolTcpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>

#include "Core/CaughtException.h"
#include "Diagnostics/QMLog.h"

namespace wifi_projection_protocol {

namespace {

constexpr int kBacklog = 10;
constexpr std::uint32_t kRetryPeriodMs = 10000;
constexpr std::chrono::milliseconds kFailedWaitPause{100};

// The socket calls take every kind of address through this one type.
template <class Address>
sockaddr* asSocketAddress(Address& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

int bindToAnyAddress(int fd, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    return bind(fd, asSocketAddress(address), sizeof(address));
}

int allowAddressReuse(int fd) {
    const int enabled = 1;
    return setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &enabled, sizeof(enabled));
}

}  // namespace

WifiProjectionProtocolTcpServer::WifiProjectionProtocolTcpServer(
    IWifiProjectionProtocolTcpServerCallbacks* serverCallbacks, const InetSocketAddress& address)
    : callbacks(serverCallbacks), host(address.host()), port(address.port()) {}

WifiProjectionProtocolTcpServer::~WifiProjectionProtocolTcpServer() {
    stop();
}

void WifiProjectionProtocolTcpServer::start() {
    thread = std::thread([this] { serve(); });
}

void WifiProjectionProtocolTcpServer::stop() {
    // The event comes first: when the wake-up ends the accept loop, the wait that follows it returns at once.
    stopping = true;
    stopEvent.SetEvent();
    polling.wakeUp();
    if (thread.joinable()) {
        thread.join();
    }
}

void WifiProjectionProtocolTcpServer::serve() {
    do {
        const int listenFd = createServerSocket(port);
        if (listenFd >= 0) {
            acceptClients(listenFd);
            close(listenFd);
        }
    } while (!waitForStop());
}

bool WifiProjectionProtocolTcpServer::waitForStop() {
    // Without a descriptor to spare the event cannot be waited for, but the wake-up that follows it can.
    if (QMEvent::WaitEvent(&stopEvent, kRetryPeriodMs) == QMEvent::kError &&
        polling.wait(static_cast<int>(kRetryPeriodMs)) == WifiSocketPolling::kFailed) {
        std::this_thread::sleep_for(kFailedWaitPause);
    }
    return stopping;
}

void WifiProjectionProtocolTcpServer::acceptClients(int listenFd) {
    if (!prepareWait(listenFd)) {
        return;
    }
    for (;;) {
        ClientSocket client;
        if (!doAccept(listenFd, client)) {
            return;
        }
        handOver(client);
    }
}

/// What could not be had when the server was made may be had now.
bool WifiProjectionProtocolTcpServer::prepareWait(int listenFd) {
    if (!polling.isUsable()) {
        polling.init();
        // A stop that found nothing to wake up with has said so before.
        if (!polling.isUsable() || stopping) {
            return false;
        }
    }
    return polling.add(listenFd, EPOLLIN);
}

void WifiProjectionProtocolTcpServer::handOver(const ClientSocket& client) {
    try {
        callbacks->onClientAccepted(client);
    } catch (...) {
        // One phone that cannot be served must not cost the others their server.
        QM_LOG_ERROR("catch exception. peer [%s], what [%s]\n", client.peerAddress.c_str(),
                     caughtExceptionText());
    }
}

int WifiProjectionProtocolTcpServer::createServerSocket(std::uint16_t listenPort) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        QM_LOG_ERROR("socket() failed.\n");
        return -1;
    }
    if (allowAddressReuse(fd) < 0) {
        QM_LOG_ERROR("setsockopt(SO_REUSEADDR) failed.\n");
    } else if (bindToAnyAddress(fd, listenPort) < 0) {
        QM_LOG_ERROR("bind() failed.\n");
    } else if (listen(fd, kBacklog) < 0) {
        QM_LOG_ERROR("listen() failed.\n");
    } else {
        return fd;
    }
    close(fd);
    return -1;
}

bool WifiProjectionProtocolTcpServer::doAccept(int listenFd, ClientSocket& client) {
    if (polling.wait(-1) != WifiSocketPolling::kReady) {
        return false;
    }
    sockaddr_in peer{};
    socklen_t peerLength = sizeof(peer);
    const int fd = accept4(listenFd, asSocketAddress(peer), &peerLength, SOCK_CLOEXEC);
    if (fd < 0) {
        QM_LOG_ERROR("accept() failed.\n");
        return false;
    }
    std::array<char, INET_ADDRSTRLEN> text{};
    if (inet_ntop(AF_INET, &peer.sin_addr, text.data(), static_cast<socklen_t>(text.size())) == nullptr) {
        QM_LOG_ERROR("inet_ntop() failed.\n");
        close(fd);
        return false;
    }
    client.fd = fd;
    client.peerAddress = text.data();
    return true;
}

}  // namespace wifi_projection_protocol
