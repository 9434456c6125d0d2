#include "private/ProtocolEngine.h"

#include <utility>

namespace wifi_projection_protocol {

ProtocolEngine::ProtocolEngine(Callbacks callbacks, const FixedSettings& settings, const Limits& bounds)
    : limits(bounds),
      log(std::move(callbacks.log)),
      callback(std::move(callbacks.events)),
      settingsSource(std::move(callbacks.infoProvider), settings.channelType, settings.channelList,
                     settings.headUnitInfo.SerializeAsString()),
      registry(limits.transports, limits.strangers),
      supervisor(limits.transports, limits.roomTime) {}

ProtocolEngine::~ProtocolEngine() {
    stop();
}

void ProtocolEngine::stop() {
    registry.stop();
    questions.stop();
    while (const ClientRegistry::Link link = registry.takeAny()) {
        link->drop();
    }
    supervisor.stop();
}

void ProtocolEngine::clientConnected(const std::string& name, TransportType type,
                                     std::unique_ptr<TransportInputOutput> transport) {
    if (!transport) {
        return;
    }
    const ConversationServices services{*callback, settingsSource, registry, questions, supervisor,
                                        log,       limits};
    const auto conversation = std::make_shared<Conversation>(services, name, type, std::move(transport));
    if (const ClientRegistry::Link stranger = registry.makeRoom(type)) {
        stranger->drop();
    }
    ClientRegistry::Link replaced;
    const bool added = registry.add(conversation, replaced);
    if (replaced) {
        replaced->drop();
    }
    if (!added || !supervisor.start(conversation)) {
        conversation->abandon();
        log.report(LibraryLog::kWarning, name, "there is no room for another transport");
    }
}

void ProtocolEngine::clientDisconnected(const std::string& name) {
    if (const ClientRegistry::Link link = registry.take(name)) {
        link->drop();
    }
}

std::future<std::uint32_t> ProtocolEngine::startProjection(const std::string& clientId,
                                                           wifi_discovery::StartRequestReason reason) {
    if (const ClientRegistry::Link link = registry.tcpLinkOf(clientId)) {
        return link->startProjection(reason);
    }
    std::promise<std::uint32_t> nobody;
    nobody.set_value(PendingStart::kNoResult);
    return nobody.get_future();
}

}  // namespace wifi_projection_protocol
