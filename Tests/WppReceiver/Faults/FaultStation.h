#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>

#include "Proxy/QmcWirelessProjectionBtProxy.h"
#include "Proxy/QmcWirelessProjectionService.h"
#include "Tests/Support/FramedPeer.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/WppReceiver/Faults/FaultTable.h"

namespace wpp_test {

/// The control service and the Bluetooth proxy in a directory of their own, with the library faked. The test is
/// every peer. Both servers are open from the start; a client is opened by connect().
class FaultStation {
public:
    FaultStation();
    ~FaultStation();
    FaultStation(const FaultStation&) = delete;
    FaultStation& operator=(const FaultStation&) = delete;

    /// Stops a stream. @return how long that took.
    std::chrono::milliseconds stop(Link link);

    /// Starts a server anew after stop().
    void reopen(Link link);

    /// Opens a client, anew when it was open. @return the end of the peer that it has connected to.
    FramedPeer connect(Link link);

    /// Begins the exchange of a message on a client; the values are those of the golden messages.
    /// @return whether the receiver counts it as a success; a notification always does.
    std::future<bool> begin(const FaultExchange& exchange);

    /// A new peer of a server is served: a controller's protocol starts and is set up, a Bluetooth process's
    /// bytes are taken.
    bool isNextPeerServed(Link link);

    /// Command 1 is answered and releases whoever waits for it.
    bool isTerminateHandled();

private:
    bool exchangeSucceeds(const std::string& message);

    TemporaryDirectory directory;
    std::unique_ptr<FramedListener> controllerListener;
    std::unique_ptr<FramedListener> bluetoothListener;
    std::unique_ptr<wifi_projection_protocol::QmcWirelessProjectionService> service;
    wifi_projection_protocol::QmcWirelessProjectionBtProxy* proxy = nullptr;
};

}  // namespace wpp_test
