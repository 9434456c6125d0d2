#pragma once

#include <memory>

#include "Pattern/QMUncopyable.h"

namespace wifi_projection_protocol {

class QmcWirelessProjectionBtProxy;
class QmcWirelessProjectionService;

/// The receiver between its peers, from its first socket to its last. Belongs to the main thread.
///
/// Starting until both client streams are connected, serving until the controller's terminate command,
/// stopping until every stream is closed.
class WppReceiver : private QMUncopyable {
public:
    /// Makes the control service and takes the Bluetooth proxy; opens nothing.
    WppReceiver();

    /// Deletes the control service. The Bluetooth proxy stays for the framework to destroy.
    virtual ~WppReceiver();

    /// The whole life of the receiver. A stream that cannot be opened is logged, and the start goes on; a
    /// peer that does not listen is waited for without limit.
    void run();

private:
    std::unique_ptr<QmcWirelessProjectionService> service;
    QmcWirelessProjectionBtProxy* btProxy;
};

}  // namespace wifi_projection_protocol
