#include "Simulator/private/Peers/ReceiverLink.h"

#include <utility>

namespace simulator {

ReceiverLink::ReceiverLink(PollLoop& pollLoop, Names socketNames, Handlers linkHandlers)
    : loop(pollLoop),
      names(std::move(socketNames)),
      handlers(std::move(linkHandlers)),
      connector(pollLoop, names.toReceiver, [this](UniqueFd fd) { onConnected(std::move(fd)); }),
      listener(pollLoop, names.fromReceiver, [this](UniqueFd fd) { onAccepted(std::move(fd)); }) {
    connector.start();
}

bool ReceiverLink::send(std::string_view payload) {
    return sendBytes(encodeFrame(payload));
}

bool ReceiverLink::sendBytes(std::string_view bytes) {
    if (!toReceiver) {
        return false;
    }
    toReceiver->sendBytes(bytes);
    return true;
}

void ReceiverLink::answer(std::string_view payload) {
    if (fromReceiver) {
        fromReceiver->sendFrame(payload);
    }
}

void ReceiverLink::onConnected(UniqueFd fd) {
    toReceiver =
        std::make_unique<FramedSocket>(loop, std::move(fd), handlers.replied, [this] { onServerGone(); });
    handlers.changed(names.toReceiver, true);
}

void ReceiverLink::onAccepted(UniqueFd fd) {
    fromReceiver =
        std::make_unique<FramedSocket>(loop, std::move(fd), handlers.received, [this] { onClientGone(); });
    handlers.changed(names.fromReceiver, true);
}

void ReceiverLink::onServerGone() {
    toReceiver.reset();
    connector.start();
    handlers.changed(names.toReceiver, false);
}

void ReceiverLink::onClientGone() {
    fromReceiver.reset();
    handlers.changed(names.fromReceiver, false);
}

}  // namespace simulator
