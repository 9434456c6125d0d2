#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "Core/IWifiProjectionProtocolTcpServerCallbacks.h"
#include "Core/WifiSocketPolling.h"
#include "Foundation/QMEvent.h"
#include "Pattern/QMUncopyable.h"
#include "wifi_projection_protocol/InetSocketAddress.h"

namespace wifi_projection_protocol {

/// Accepts TCP connections on every local address and passes them to its callbacks.
///
/// Created, running (start), stopped (stop). A socket that cannot be set up, an accept that fails and a
/// failed wait are logged and tried afresh every 10 seconds; an exception of a callback is logged, and the
/// next connection awaited. start and stop belong to one thread, the owner's; the callbacks run on the server's
/// thread.
class WifiProjectionProtocolTcpServer : private QMUncopyable {
public:
    /// Only the port of `address` is used. `serverCallbacks` is not owned and outlives the server.
    WifiProjectionProtocolTcpServer(IWifiProjectionProtocolTcpServerCallbacks* serverCallbacks,
                                    const InetSocketAddress& address);
    ~WifiProjectionProtocolTcpServer();

    /// Starts the server thread; throws std::system_error without one. It does not start again after stop.
    void start();

    /// Wakes and joins the server thread; returns without delay unless a callback is running.
    void stop();

private:
    void serve();
    bool waitForStop();
    void acceptClients(int listenFd);
    bool prepareWait(int listenFd);
    void handOver(const ClientSocket& client);
    int createServerSocket(std::uint16_t listenPort);
    bool doAccept(int listenFd, ClientSocket& client);

    IWifiProjectionProtocolTcpServerCallbacks* const callbacks;
    const std::string host;
    const std::uint16_t port;
    std::thread thread;
    std::atomic<bool> stopping{false};
    QMEvent stopEvent;
    WifiSocketPolling polling;
};

}  // namespace wifi_projection_protocol
