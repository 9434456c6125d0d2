#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Foundation/QMEvent.h"
#include "Foundation/QMSync.h"
#include "Pattern/QMSubject.h"
#include "Pattern/QMUncopyable.h"
#include "inc/QMThreadSafety.h"

namespace wifi_projection_protocol {

/// Turns the SPP messages of the Bluetooth proxy for one device and one service into a blocking byte pipe.
///
/// Open from construction, when it begins to buffer what arrives, until the first close; closed is final.
/// Arrivals come on the proxy's stream thread; one thread reads at a time; any thread may write or close,
/// also while a read waits.
class RfcommTransportAdapter : private QMUncopyable {
public:
    RfcommTransportAdapter(std::uint8_t deviceId, std::string uuid);

    /// Closes. No other thread may be inside an operation any more.
    ~RfcommTransportAdapter();

    /// Waits without limit for bytes and copies at most `length` of them, oldest first.
    /// @return the count copied (0 after a wake-up with nothing buffered), or -1 once closed.
    int read(void* destination, unsigned length);

    /// Sends SendSppData and waits for the Bluetooth process's reply.
    /// @return the reply's value, 0 when the exchange failed (logged), or -1 once closed.
    int write(const void* source, unsigned length);

    /// Stops the arrivals, sends one DisconnectSpp and wakes the reader. Further calls do nothing.
    void close();

private:
    unsigned onSppData(unsigned eventCode, const void* payload, int size);
    void dropFront(std::size_t count) QM_REQUIRES(lock);

    const std::uint8_t btDeviceId;
    const std::string serviceUuid;
    QMObserver<RfcommTransportAdapter> observer;
    std::atomic<std::uint8_t> closed{0};
    QMSync lock;
    QMEvent dataAvailable;
    std::vector<std::uint8_t> buffer QM_GUARDED_BY(lock);  // empty as soon as every byte has been read
    std::size_t readPos QM_GUARDED_BY(lock) = 0;           // of the oldest byte not yet read
};

}  // namespace wifi_projection_protocol
