#include "Core/WppReceiver.h"

#include "Proxy/QmcWirelessProjectionBtProxy.h"
#include "Proxy/QmcWirelessProjectionService.h"

namespace wifi_projection_protocol {

WppReceiver::WppReceiver()
    : service(std::make_unique<QmcWirelessProjectionService>()),
      btProxy(QmcWirelessProjectionBtProxy::getInstance()) {}

WppReceiver::~WppReceiver() = default;

void WppReceiver::run() {
    // Each server listens before the client beside it connects: a peer may answer a connection with commands.
    service->openServer();
    btProxy->openServer();
    service->openClient();
    btProxy->openClient();
    service->waitExit();
    service->closeServer();
    btProxy->closeServer();
    service->closeClient();
    btProxy->closeClient();
}

}  // namespace wifi_projection_protocol
