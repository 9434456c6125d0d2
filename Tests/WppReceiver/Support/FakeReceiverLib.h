#pragma once

#include <condition_variable>
#include <cstdint>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "wifi_projection_protocol/SslTransportFactory.h"
#include "wifi_projection_protocol/WifiProjectionProtocol.h"

namespace wpp_test {

/// What the tests see of, and make of, the receiver library that is linked in place of the real one.
///
/// It records what the receiver hands over. It calls back by itself only when told to (askWhileEnding);
/// else the test does, through callback() and infoProvider(). One per process; reset() forgets everything. Any thread may call.
class FakeReceiverLib {
public:
    struct Construction {
        wifi_discovery::WifiChannelType channelType;
        std::vector<unsigned int> channelList;
        common::HeadUnitInfo headUnitInfo;
        std::string listenHost;
        unsigned short listenPort;
        bool passive;
    };

    struct Client {
        std::string name;
        wifi_projection_protocol::TransportType type;
        bool operator==(const Client& other) const { return name == other.name && type == other.type; }
    };

    struct Start {
        std::string clientId;
        wifi_discovery::StartRequestReason reason;
    };

    struct Factory {
        std::string certificate;
        std::string privateKey;
        std::string caCertificate;
        bool hasTimeLimit;
        bool acceptAnyPhone;
        std::string serviceName;
    };

    static FakeReceiverLib& instance();
    void reset();

    // What the receiver did, in order.
    std::vector<Construction> constructions();
    std::vector<Client> connected();
    std::vector<std::string> disconnected();
    std::vector<Start> starts();
    std::vector<Factory> factories();
    std::vector<int> wrappedSockets();
    int liveProtocols();
    int liveFactories();

    /// Waits up to 10 s for so many entries. @return whether they came.
    bool waitForConnected(std::size_t count);
    bool waitForStarts(std::size_t count);
    bool waitForWrappedSockets(std::size_t count);

    // The objects that the live protocol was given; null when there is none.
    wifi_projection_protocol::WifiProjectionProtocolCallback* callback();
    wifi_projection_protocol::WifiProjectionInfoProvider* infoProvider();
    wifi_projection_protocol::WifiProjectionProtocolLoggingCallback* loggingCallback();
    wifi_projection_protocol::TransportInputOutput* transport(const std::string& name);

    // How it behaves.
    void finishStart(std::size_t index, std::uint32_t result);
    void failStart(std::size_t index, const std::string& what);
    void giveStartsNoSharedState() { startsWithoutState = true; }
    void refuseToWrap() { wrapping = false; }

    /// Gives every start its result at once.
    void answerStarts(std::uint32_t result);

    /// Makes a call throw a std::runtime_error of this text until reset(). A constructor is named like its
    /// class.
    void throwFrom(const std::string& call, const std::string& what);

    /// Asks the callback about a client while the protocol ends.
    void askWhileEnding() { askingAtTheEnd = true; }

private:
    friend class wifi_projection_protocol::WifiProjectionProtocol;
    friend class wifi_projection_protocol::SslTransportFactory;

    void throwIfTold(const std::string& call);

    template <class Container>
    bool waitForSize(const Container& container, std::size_t count);

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Construction> constructionList;
    std::vector<Client> connectedList;
    std::vector<std::string> disconnectedList;
    std::vector<Start> startList;
    std::vector<std::promise<std::uint32_t>> startResults;
    std::vector<Factory> factoryList;
    std::vector<int> wrappedList;
    std::map<std::string, wifi_projection_protocol::TransportInputOutput*> transports;
    wifi_projection_protocol::WifiProjectionProtocolCallback* liveCallback = nullptr;
    wifi_projection_protocol::WifiProjectionInfoProvider* liveInfoProvider = nullptr;
    wifi_projection_protocol::WifiProjectionProtocolLoggingCallback* liveLoggingCallback = nullptr;
    int protocolCount = 0;
    int factoryCount = 0;
    bool startsWithoutState = false;
    std::optional<std::uint32_t> startAnswer;
    bool wrapping = true;
    bool askingAtTheEnd = false;
    std::map<std::string, std::string> thrownTexts;
};

}  // namespace wpp_test
