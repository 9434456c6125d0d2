#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "phone/PhoneMessageCodec.h"
#include "phone/PhoneProtocol.pb.h"
#include "private/ClientRegistry.h"
#include "private/LibraryLog.h"
#include "private/Limits.h"
#include "private/PendingStart.h"
#include "private/PhoneLink.h"
#include "private/QuestionQueue.h"
#include "private/SettingsSource.h"
#include "private/StepClock.h"
#include "private/Supervisor.h"
#include "wifi_projection_protocol/WifiProjectionProtocolCallback.h"

namespace wifi_projection_protocol {

/// What every conversation works with. It outlives them.
struct ConversationServices {
    WifiProjectionProtocolCallback& callback;
    const SettingsSource& settings;
    ClientRegistry& registry;
    QuestionQueue& questions;
    Supervisor& supervisor;
    LibraryLog& log;
    const Limits& limits;
};

/// What is said over one transport.
///
/// Life: connected (Hello is due) -> known (joined its client in the registry) -> ended. It ends when the
/// transport does, when the phone breaks the protocol or a time limit, and when it is dropped; then the
/// transport is released, a start still pending results in 0, and a loss is reported if the registry says so.
///
/// run() reads, on the conversation's own thread, and makes every callback, without a lock. Any thread may
/// start projection or drop. The transport is shared by those that use it at the moment and goes with the
/// last of them; after its read has returned -1 or the conversation is dropped, at most one more read is
/// made.
class Conversation : public PhoneLink, public Supervised {
public:
    Conversation(ConversationServices services, std::string name, TransportType type,
                 std::unique_ptr<TransportInputOutput> transport);

    const std::string& name() const override { return linkName; }
    TransportType type() const override { return linkType; }
    std::future<std::uint32_t> startProjection(wifi_discovery::StartRequestReason reason) override;
    void drop() override;

    void run() override;
    Clock::time_point deadline() const override;
    void endLate() override;

    /// Ends a conversation that never got a thread.
    void abandon();

private:
    using Transport = std::shared_ptr<TransportInputOutput>;
    using Message = phone_protocol::PhoneMessage;
    struct Rule;
    static const Rule* findRule(Message::KindCase kind);

    void converse();
    bool take(const void* bytes, std::size_t size);
    bool handle(const std::string& payload);
    bool onHello(const Message& message);
    bool onWifiVersionResult(const Message& message);
    bool onWifiConnectStatus(const Message& message);
    bool onMayIStart(const Message& message);
    bool onReadyForProjection(const Message& message);
    bool onStartResult(const Message& message);

    bool isWelcome(const std::string& clientId);
    bool greet(const ClientInfo& client);
    std::string encode(const phone_protocol::HeadUnitMessage& message);
    bool sendLocked(const std::string& bytes);
    void beginStep(Step step, std::chrono::milliseconds limit);
    bool refuse(const char* reason);
    void release();
    void reportLoss();
    Transport currentTransport();

    const ConversationServices services;
    const std::string linkName;
    const TransportType linkType;

    // Synchronised by themselves.
    std::atomic<bool> dropped{false};
    StepClock steps;
    PendingStart pendingStart;

    // Used by run() only.
    phone_protocol::PhoneMessageDecoder decoder;
    std::string clientId;  // empty before Hello

    std::mutex transportMutex;
    Transport transport;  // guarded by transportMutex; empty once released

    std::mutex
        sending;  // held while a message goes out, so that messages stay whole and Settings comes first
};

}  // namespace wifi_projection_protocol
