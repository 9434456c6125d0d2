#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "Simulator/private/Peers/OrderBook.h"
#include "Simulator/private/Peers/ReceiverLink.h"

namespace simulator {

/// The head unit's controller process: sends the commands that it is ordered to send, acknowledges
/// notifications and answers the receiver's questions.
///
/// Until ordered otherwise it acknowledges at once, answers "may it start" with 1, and answers the request
/// for TLS material with three empty texts. Runs on the loop's thread alone.
class ControllerPeer {
public:
    /// Listens for the receiver and begins to knock at it, in the working directory.
    /// @throws std::system_error when it cannot listen.
    ControllerPeer(PollLoop& pollLoop, EventWriter& eventWriter);

    /// What it can be ordered to do; the table borrows this object.
    OrderBook::Table orders();

private:
    void send(const Json& order);
    void sendFrame(const Json& order);
    void setAcknowledgement(const Json& order);
    void setCanStartAnswer(const Json& order);
    void setKeyAnswer(const Json& order);
    void die(const Json& order);

    void sendCommand(std::int32_t messageId, const Json& fields);
    void onReplied(std::string_view payload);
    void onReceived(std::string_view payload);
    void onChanged(const std::string& socket, bool up);
    void acknowledge();
    void answerCanStart(const Json& question);
    void answerKeyRequest();

    PollLoop& loop;
    EventWriter& events;
    std::deque<std::int32_t> awaitingReply;                             // ids of the commands on their way
    std::optional<std::string> acknowledgement = std::string(1, '\1');  // empty: never acknowledges
    std::optional<std::int32_t> canStart = 1;                           // empty: never answers
    Milliseconds canStartDelay{0};
    std::optional<std::string> keyAnswer;  // payload; empty: never answers
    ReceiverLink link;
};

}  // namespace simulator
