#include "Core/WppReceiver.h"

#include <chrono>
#include <new>
#include <thread>

#include "Diagnostics/QMLog.h"
#include "Proxy/QmcWirelessProjectionBtProxy.h"
#include "Proxy/QmcWirelessProjectionService.h"

namespace wifi_projection_protocol {

namespace {

constexpr std::chrono::milliseconds kNoMemoryPause{100};

/// Opens a stream, again and again while that takes more memory than there is: without the stream the process
/// could neither serve nor be ended.
template <class Open>
void onceThereIsMemory(Open open) {
    for (;;) {
        try {
            open();
            return;
        } catch (const std::bad_alloc& exception) {
            qm_Log(QM_SOURCE_PATH, "run", __LINE__, QM_LOG_LEVEL_ERROR, "catch exception. what [%s]\n",
                   exception.what());
        }
        std::this_thread::sleep_for(kNoMemoryPause);
    }
}

}  // namespace

WppReceiver::WppReceiver()
    : service(std::make_unique<QmcWirelessProjectionService>()),
      btProxy(QmcWirelessProjectionBtProxy::getInstance()) {}

WppReceiver::~WppReceiver() = default;

void WppReceiver::run() {
    // Each server listens before the client beside it connects: a peer may answer a connection with commands.
    onceThereIsMemory([this] { service->openServer(); });
    onceThereIsMemory([this] { btProxy->openServer(); });
    onceThereIsMemory([this] { service->openClient(); });
    onceThereIsMemory([this] { btProxy->openClient(); });
    service->waitExit();
    service->closeServer();
    btProxy->closeServer();
    service->closeClient();
    btProxy->closeClient();
}

}  // namespace wifi_projection_protocol
