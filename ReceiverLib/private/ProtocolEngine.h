#pragma once

#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "common/Common.pb.h"
#include "private/ClientRegistry.h"
#include "private/Conversation.h"
#include "private/LibraryLog.h"
#include "private/Limits.h"
#include "private/QuestionQueue.h"
#include "private/SettingsSource.h"
#include "private/Supervisor.h"
#include "wifi_discovery/WifiDiscovery.h"
#include "wifi_projection_protocol/TransportInputOutput.h"
#include "wifi_projection_protocol/WifiProjectionInfoProvider.h"
#include "wifi_projection_protocol/WifiProjectionProtocolCallback.h"
#include "wifi_projection_protocol/WifiProjectionProtocolLoggingCallback.h"

namespace wifi_projection_protocol {

/// The three objects that the library is given to own. The logging callback may be empty, the others not.
struct Callbacks {
    std::unique_ptr<WifiProjectionProtocolCallback> events;
    std::unique_ptr<WifiProjectionInfoProvider> infoProvider;
    std::unique_ptr<WifiProjectionProtocolLoggingCallback> log;
};

/// What stays the same for every phone.
struct FixedSettings {
    wifi_discovery::WifiChannelType channelType{};
    std::vector<unsigned int> channelList;
    common::HeadUnitInfo headUnitInfo;
};

/// What stands behind WifiProjectionProtocol; see there for what the operations promise.
///
/// Each transport has a Conversation with a thread of its own; one supervising thread keeps the time limits
/// and joins the threads that have ended. Locks are each taken alone, except that a conversation's sending
/// lock may be held while the registry's is taken; none is held during a callback.
class ProtocolEngine {
public:
    ProtocolEngine(Callbacks callbacks, const FixedSettings& settings, const Limits& limits = {});

    ~ProtocolEngine();

    ProtocolEngine(const ProtocolEngine&) = delete;
    ProtocolEngine& operator=(const ProtocolEngine&) = delete;

    /// Ends every conversation and waits for their threads, callbacks under way included, which may still
    /// call every other operation. Afterwards nothing can be connected any more. Not from one of the
    /// library's threads.
    void stop();

    void clientConnected(const std::string& name, TransportType type,
                         std::unique_ptr<TransportInputOutput> transport);
    void clientDisconnected(const std::string& name);
    std::future<std::uint32_t> startProjection(const std::string& clientId,
                                               wifi_discovery::StartRequestReason reason);

private:
    const Limits limits;
    LibraryLog log;
    const std::unique_ptr<WifiProjectionProtocolCallback> callback;
    const SettingsSource settingsSource;
    ClientRegistry registry;
    QuestionQueue questions;
    Supervisor supervisor;
};

}  // namespace wifi_projection_protocol
