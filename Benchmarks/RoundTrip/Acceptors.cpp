#include "Benchmarks/RoundTrip/Acceptors.h"

#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <initializer_list>

#include "Benchmarks/RoundTrip/Support/Sockets.h"
#include "Benchmarks/RoundTrip/Support/Tcp.h"
#include "Core/WifiProjectionProtocolTcpServer.h"

namespace bench {

namespace {

using namespace wifi_projection_protocol;

void serveMinimal() {
    const int listener = listenTcp();
    for (;;) {
        close(acceptOne(listener));
    }
}

void servePrescribed() {
    const int listener = listenTcp();
    const int wakeUp = check(eventfd(0, EFD_CLOEXEC), "eventfd");
    const int set = check(epoll_create1(EPOLL_CLOEXEC), "epoll_create1");
    for (const int descriptor : {wakeUp, listener}) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = descriptor;
        check(epoll_ctl(set, EPOLL_CTL_ADD, descriptor, &event), "epoll_ctl");
    }
    epoll_event ready[2];
    while (epoll_wait(set, ready, 2, -1) == 1) {
        sockaddr_in peer{};
        socklen_t size = sizeof(peer);
        close(check(accept4(listener, reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC), "accept"));
    }
}

class Closer final : public IWifiProjectionProtocolTcpServerCallbacks {
public:
    void onClientAccepted(const ClientSocket& client) override { close(client.fd); }
};

void serveOurs() {
    Closer closer;
    WifiProjectionProtocolTcpServer server(&closer, InetSocketAddress("0.0.0.0", kTcpPort));
    server.start();
    for (;;) {
        pause();
    }
}

}  // namespace

Acceptor minimalAcceptor() {
    return {"minimal", serveMinimal};
}

Acceptor prescribedAcceptor() {
    return {"prescribed", servePrescribed};
}

Acceptor ourAcceptor() {
    return {"ours", serveOurs};
}

}  // namespace bench
