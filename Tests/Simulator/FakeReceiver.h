#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Simulator/private/Io/Connector.h"
#include "Simulator/private/Io/FramedSocket.h"
#include "Simulator/private/Io/Listener.h"

namespace simulator {

/// The receiver's end of a pair of sockets: keeps what arrives, sends what the test says, answers nothing by
/// itself.
class FakeReceiver {
public:
    FakeReceiver(PollLoop& pollLoop, const std::string& serverName, const std::string& clientName)
        : loop(pollLoop),
          listener(loop, serverName,
                   [this](UniqueFd fd) { server = take(std::move(fd), commands, serverClosed); }),
          connector(loop, clientName,
                    [this](UniqueFd fd) { client = take(std::move(fd), answers, clientClosed); }) {
        connector.start();
    }

    bool isConnected() const { return server && client; }

    PollLoop& loop;
    std::vector<std::string> commands;  ///< payloads that the peer has sent
    std::vector<std::string> answers;   ///< payloads with which the peer has answered
    bool serverClosed = false;
    bool clientClosed = false;
    std::unique_ptr<FramedSocket> server;
    std::unique_ptr<FramedSocket> client;

private:
    std::unique_ptr<FramedSocket> take(UniqueFd fd, std::vector<std::string>& payloads, bool& closed) {
        return std::make_unique<FramedSocket>(
            loop, std::move(fd), [&payloads](std::string_view payload) { payloads.emplace_back(payload); },
            [&closed] { closed = true; });
    }

    Listener listener;
    Connector connector;
};

}  // namespace simulator
