#pragma once

#include <cstdint>
#include <string_view>

#include "Simulator/private/Peers/OrderBook.h"
#include "Simulator/private/Peers/ReceiverLink.h"
#include "Simulator/private/Peers/RfcommHub.h"

namespace simulator {

/// The head unit's Bluetooth process: carries the bytes of the phones' RFCOMM channels to the receiver and
/// back, and drops a channel when the receiver asks for it.
///
/// What a phone sends while the receiver is not there is lost, as over a dead bridge. Runs on the loop's
/// thread alone.
class BluetoothPeer {
public:
    /// Listens for the receiver and the phones and begins to knock at the receiver, in the working directory.
    /// @throws std::system_error when it cannot listen.
    BluetoothPeer(PollLoop& pollLoop, EventWriter& eventWriter);

    /// What it can be ordered to do; the table borrows this object.
    OrderBook::Table orders();

private:
    void sendFrame(const Json& order);
    void setAcknowledgement(const Json& order);
    void dropPhone(const Json& order);

    void onReplied(std::string_view payload);
    void onReceived(std::string_view payload);
    bool onSendSppData(std::string_view payload);
    bool onDisconnectSpp(std::string_view payload);
    void onPhoneBytes(std::uint8_t device, std::string_view bytes);

    PollLoop& loop;
    EventWriter& events;
    bool acknowledging = true;
    RfcommHub hub;
    ReceiverLink link;
};

}  // namespace simulator
