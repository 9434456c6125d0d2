#include "Core/RfcommTransportAdapter.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "Core/CaughtException.h"
#include "Diagnostics/QMLog.h"
#include "LibWpp/SppReceivedData.h"
#include "Proxy/QmcWirelessProjectionBtProxy.h"

namespace wifi_projection_protocol {

namespace {
constexpr int kClosed = -1;
constexpr int kNotSent = 0;
constexpr std::chrono::milliseconds kFailedWaitPause{100};
}  // namespace

RfcommTransportAdapter::RfcommTransportAdapter(std::uint8_t deviceId, std::string uuid)
    : btDeviceId(deviceId), serviceUuid(std::move(uuid)), observer(this, &RfcommTransportAdapter::onSppData) {
    QmcWirelessProjectionBtProxy::getInstance()->AddObserver(&observer);
}

RfcommTransportAdapter::~RfcommTransportAdapter() {
    close();
}

int RfcommTransportAdapter::read(void* destination, unsigned length) {
    if (QMEvent::WaitEvent(&dataAvailable, QM_WAIT_INFINITE) == QMEvent::kError) {
        // Out of descriptors the wait fails at once; a reader that tries again must not spin.
        std::this_thread::sleep_for(kFailedWaitPause);
    }
    if (closed != 0) {
        // The signal of close stays, so that every other read returns too.
        dataAvailable.SetEvent();
        return kClosed;
    }
    QMSyncGuard guard(lock);
    const std::size_t count = std::min<std::size_t>(buffer.size() - readPos, length);
    std::copy_n(buffer.data() + readPos, count, static_cast<std::uint8_t*>(destination));
    dropFront(count);
    if (!buffer.empty()) {
        dataAvailable.SetEvent();
    }
    return static_cast<int>(count);
}

/// Moving what is left to the front costs as much as there is left, so it waits until as much has been read: a
/// reader that lags behind pays for the bytes that it takes and not for those that wait.
void RfcommTransportAdapter::dropFront(std::size_t count) {
    readPos += count;
    if (readPos < buffer.size() - readPos) {
        return;
    }
    buffer.erase(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(readPos));
    readPos = 0;
}

int RfcommTransportAdapter::write(const void* source, unsigned length) {
    if (closed != 0) {
        return kClosed;
    }
    try {
        return QmcWirelessProjectionBtProxy::getInstance()->sendSppData(
            btDeviceId, serviceUuid, static_cast<const std::uint8_t*>(source), length);
    } catch (...) {
        // Nothing may be thrown into the library that writes.
        QM_LOG_ERROR("catch exception. BtDeviceId=%d, what [%s]\n", btDeviceId, caughtExceptionText());
        return kNotSent;
    }
}

void RfcommTransportAdapter::close() {
    if (closed.exchange(1) != 0) {
        return;
    }
    QmcWirelessProjectionBtProxy* proxy = QmcWirelessProjectionBtProxy::getInstance();
    proxy->RemoveObserver(&observer);
    try {
        proxy->disconnectSpp(btDeviceId, serviceUuid);
    } catch (...) {
        // The destructor closes too, and a reader waits for the signal that follows.
        QM_LOG_ERROR("catch exception. BtDeviceId=%d, what [%s]\n", btDeviceId, caughtExceptionText());
    }
    dataAvailable.SetEvent();
}

unsigned RfcommTransportAdapter::onSppData(unsigned eventCode, const void* payload, int) {
    if (eventCode != QmcWirelessProjectionBtProxy::kSppDataReceived) {
        return 0;
    }
    const auto& record = *static_cast<const SppReceivedData*>(payload);
    if (record.btDeviceId != btDeviceId || record.uuid != serviceUuid) {
        return 0;
    }
    QMSyncGuard guard(lock);
    buffer.insert(buffer.end(), record.data, record.data + record.length);
    dataAvailable.SetEvent();
    return 0;
}

}  // namespace wifi_projection_protocol
