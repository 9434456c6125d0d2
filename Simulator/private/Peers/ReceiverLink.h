#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Simulator/private/Io/Connector.h"
#include "Simulator/private/Io/FramedSocket.h"
#include "Simulator/private/Io/Listener.h"

namespace simulator {

/// A peer's pair of sockets with the receiver, the same for the controller and the Bluetooth process.
///
/// On one, where the receiver listens, the peer sends messages and the receiver replies with one byte; on the
/// other, where the peer listens, the receiver sends and the peer answers. Both come up by themselves, in any
/// order, and again after the receiver has gone and another has come. The handlers run from within the loop.
class ReceiverLink {
public:
    struct Names {
        std::string toReceiver;    ///< the receiver listens there
        std::string fromReceiver;  ///< the peer listens there
    };
    struct Handlers {
        std::function<void(std::string_view payload)>
            replied;  ///< to what send() has sent, in the same order
        std::function<void(std::string_view payload)>
            received;  ///< a message of the receiver, to be answered
        std::function<void(const std::string& socket, bool up)> changed;
    };

    /// Listens and begins to knock. @throws std::system_error when it cannot listen.
    ReceiverLink(PollLoop& pollLoop, Names socketNames, Handlers linkHandlers);

    /// @return false when the receiver is not there: nothing is sent.
    bool send(std::string_view payload);

    /// Sends bytes that need not be a frame to the receiver's server: for misbehaviour.
    bool sendBytes(std::string_view bytes);

    /// Answers the receiver's message; without a connection the answer is dropped.
    void answer(std::string_view payload);

private:
    void onConnected(UniqueFd fd);
    void onAccepted(UniqueFd fd);
    void onServerGone();
    void onClientGone();

    PollLoop& loop;
    const Names names;
    const Handlers handlers;
    Connector connector;
    Listener listener;
    std::unique_ptr<FramedSocket> toReceiver;
    std::unique_ptr<FramedSocket> fromReceiver;
};

}  // namespace simulator
