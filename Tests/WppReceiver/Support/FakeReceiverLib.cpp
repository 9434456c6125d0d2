#include "Tests/WppReceiver/Support/FakeReceiverLib.h"

#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <utility>

namespace wpp_test {

namespace {
constexpr std::chrono::seconds kLimit{10};
}

FakeReceiverLib& FakeReceiverLib::instance() {
    static FakeReceiverLib fake;
    return fake;
}

void FakeReceiverLib::reset() {
    std::lock_guard guard(mutex);
    constructionList.clear();
    connectedList.clear();
    disconnectedList.clear();
    startList.clear();
    startResults.clear();
    factoryList.clear();
    wrappedList.clear();
    startsWithoutState = false;
    startAnswer.reset();
    wrapping = true;
    askingAtTheEnd = false;
    thrownTexts.clear();
}

std::vector<FakeReceiverLib::Construction> FakeReceiverLib::constructions() {
    std::lock_guard guard(mutex);
    return constructionList;
}

std::vector<FakeReceiverLib::Client> FakeReceiverLib::connected() {
    std::lock_guard guard(mutex);
    return connectedList;
}

std::vector<std::string> FakeReceiverLib::disconnected() {
    std::lock_guard guard(mutex);
    return disconnectedList;
}

std::vector<FakeReceiverLib::Start> FakeReceiverLib::starts() {
    std::lock_guard guard(mutex);
    return startList;
}

std::vector<FakeReceiverLib::Factory> FakeReceiverLib::factories() {
    std::lock_guard guard(mutex);
    return factoryList;
}

std::vector<int> FakeReceiverLib::wrappedSockets() {
    std::lock_guard guard(mutex);
    return wrappedList;
}

int FakeReceiverLib::liveProtocols() {
    std::lock_guard guard(mutex);
    return protocolCount;
}

int FakeReceiverLib::liveFactories() {
    std::lock_guard guard(mutex);
    return factoryCount;
}

void FakeReceiverLib::throwFrom(const std::string& call, const std::string& what) {
    std::lock_guard guard(mutex);
    thrownTexts[call] = what;
}

void FakeReceiverLib::throwIfTold(const std::string& call) {
    std::lock_guard guard(mutex);
    const auto told = thrownTexts.find(call);
    if (told != thrownTexts.end()) {
        throw std::runtime_error(told->second);
    }
}

template <class Container>
bool FakeReceiverLib::waitForSize(const Container& container, std::size_t count) {
    std::unique_lock guard(mutex);
    return changed.wait_for(guard, kLimit, [&container, count] { return container.size() >= count; });
}

bool FakeReceiverLib::waitForConnected(std::size_t count) {
    return waitForSize(connectedList, count);
}

bool FakeReceiverLib::waitForStarts(std::size_t count) {
    return waitForSize(startList, count);
}

bool FakeReceiverLib::waitForWrappedSockets(std::size_t count) {
    return waitForSize(wrappedList, count);
}

wifi_projection_protocol::WifiProjectionProtocolCallback* FakeReceiverLib::callback() {
    std::lock_guard guard(mutex);
    return liveCallback;
}

wifi_projection_protocol::WifiProjectionInfoProvider* FakeReceiverLib::infoProvider() {
    std::lock_guard guard(mutex);
    return liveInfoProvider;
}

wifi_projection_protocol::WifiProjectionProtocolLoggingCallback* FakeReceiverLib::loggingCallback() {
    std::lock_guard guard(mutex);
    return liveLoggingCallback;
}

wifi_projection_protocol::TransportInputOutput* FakeReceiverLib::transport(const std::string& name) {
    std::lock_guard guard(mutex);
    const auto found = transports.find(name);
    return found == transports.end() ? nullptr : found->second;
}

void FakeReceiverLib::answerStarts(std::uint32_t result) {
    std::lock_guard guard(mutex);
    startAnswer = result;
}

void FakeReceiverLib::finishStart(std::size_t index, std::uint32_t result) {
    std::lock_guard guard(mutex);
    startResults.at(index).set_value(result);
}

void FakeReceiverLib::failStart(std::size_t index, const std::string& what) {
    std::lock_guard guard(mutex);
    startResults.at(index).set_exception(std::make_exception_ptr(std::runtime_error(what)));
}

}  // namespace wpp_test

namespace wifi_projection_protocol {

using wpp_test::FakeReceiverLib;

/// Owns what the receiver handed over, as the real library does.
class WifiProjectionProtocol::Implementation {
public:
    std::unique_ptr<WifiProjectionProtocolCallback> callback;
    std::unique_ptr<WifiProjectionInfoProvider> infoProvider;
    std::unique_ptr<WifiProjectionProtocolLoggingCallback> loggingCallback;
    std::map<std::string, std::unique_ptr<TransportInputOutput>> transports;
};

WifiProjectionProtocol::WifiProjectionProtocol(
    std::unique_ptr<WifiProjectionProtocolCallback> callback,
    std::unique_ptr<WifiProjectionInfoProvider> infoProvider, wifi_discovery::WifiChannelType channelType,
    std::vector<unsigned int> channelList, common::HeadUnitInfo headUnitInfo, InetSocketAddress listenAddress,
    bool passive, std::unique_ptr<WifiProjectionProtocolLoggingCallback> loggingCallback)
    : implementation(std::make_unique<Implementation>()) {
    implementation->callback = std::move(callback);
    implementation->infoProvider = std::move(infoProvider);
    implementation->loggingCallback = std::move(loggingCallback);
    FakeReceiverLib& fake = FakeReceiverLib::instance();
    fake.throwIfTold("WifiProjectionProtocol");
    std::lock_guard guard(fake.mutex);
    fake.constructionList.push_back({channelType, std::move(channelList), std::move(headUnitInfo),
                                     listenAddress.host(), listenAddress.port(), passive});
    fake.liveCallback = implementation->callback.get();
    fake.liveInfoProvider = implementation->infoProvider.get();
    fake.liveLoggingCallback = implementation->loggingCallback.get();
    ++fake.protocolCount;
    fake.changed.notify_all();
}

WifiProjectionProtocol::~WifiProjectionProtocol() {
    FakeReceiverLib& fake = FakeReceiverLib::instance();
    if (fake.askingAtTheEnd) {
        implementation->callback->isClientKnown("phone");
    }
    std::lock_guard guard(fake.mutex);
    fake.transports.clear();
    fake.liveCallback = nullptr;
    fake.liveInfoProvider = nullptr;
    fake.liveLoggingCallback = nullptr;
    --fake.protocolCount;
}

void WifiProjectionProtocol::ClientConnected(const std::string& name, TransportType type,
                                             std::unique_ptr<TransportInputOutput> transport) {
    FakeReceiverLib& fake = FakeReceiverLib::instance();
    fake.throwIfTold("ClientConnected");
    std::lock_guard guard(fake.mutex);
    fake.connectedList.push_back({name, type});
    fake.transports[name] = transport.get();
    implementation->transports[name] = std::move(transport);
    fake.changed.notify_all();
}

void WifiProjectionProtocol::ClientDisconnected(const std::string& name) {
    FakeReceiverLib& fake = FakeReceiverLib::instance();
    fake.throwIfTold("ClientDisconnected");
    std::lock_guard guard(fake.mutex);
    fake.disconnectedList.push_back(name);
    fake.transports.erase(name);
    implementation->transports.erase(name);
    fake.changed.notify_all();
}

std::future<std::uint32_t> WifiProjectionProtocol::StartProjection(
    const std::string& clientId, wifi_discovery::StartRequestReason reason) {
    FakeReceiverLib& fake = FakeReceiverLib::instance();
    fake.throwIfTold("StartProjection");
    std::lock_guard guard(fake.mutex);
    fake.startList.push_back({clientId, reason});
    fake.startResults.emplace_back();
    if (fake.startAnswer) {
        fake.startResults.back().set_value(*fake.startAnswer);
    }
    fake.changed.notify_all();
    return fake.startsWithoutState ? std::future<std::uint32_t>() : fake.startResults.back().get_future();
}

struct SslTransportFactory::Context {};

SslTransportFactory::SslTransportFactory(const std::string& certificate, const std::string& privateKey,
                                         const std::string& caCertificate,
                                         std::optional<long> handshakeTimeLimitMs, bool acceptAnyPhone,
                                         std::string serviceName) {
    FakeReceiverLib& fake = FakeReceiverLib::instance();
    fake.throwIfTold("SslTransportFactory");
    std::lock_guard guard(fake.mutex);
    fake.factoryList.push_back({certificate, privateKey, caCertificate, handshakeTimeLimitMs.has_value(),
                                acceptAnyPhone, std::move(serviceName)});
    ++fake.factoryCount;
}

SslTransportFactory::~SslTransportFactory() {
    FakeReceiverLib& fake = FakeReceiverLib::instance();
    std::lock_guard guard(fake.mutex);
    --fake.factoryCount;
}

namespace {

/// A transport that does nothing but own its socket.
class SocketOwner final : public TransportInputOutput {
public:
    explicit SocketOwner(int descriptor) : fd(descriptor) {}
    ~SocketOwner() override { ::close(fd); }
    SocketOwner(const SocketOwner&) = delete;
    SocketOwner& operator=(const SocketOwner&) = delete;

    int read(void*, unsigned) override { return -1; }
    int write(const void*, unsigned) override { return -1; }
    void close() override {}

private:
    int fd;
};

}  // namespace

std::unique_ptr<TransportInputOutput> SslTransportFactory::CreateSslTransportInputOutput(int fd) {
    FakeReceiverLib& fake = FakeReceiverLib::instance();
    std::lock_guard guard(fake.mutex);
    fake.wrappedList.push_back(fd);
    fake.changed.notify_all();
    return fake.wrapping ? std::make_unique<SocketOwner>(fd) : nullptr;
}

}  // namespace wifi_projection_protocol
