#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "wifi_projection_protocol/WifiProjectionInfoProvider.h"
#include "wifi_projection_protocol/WifiProjectionProtocolCallback.h"
#include "wifi_projection_protocol/WifiProjectionProtocolLoggingCallback.h"

namespace wpp_test {

/// One call of the protocol callback.
struct Event {
    enum Kind { kQuestion, kReady, kStatus, kVersionFailure, kLost };

    Kind kind;
    wifi_projection_protocol::ClientInfo client;  // for kStatus only its clientId
    std::uint32_t value = 0;
    std::string text;
};

/// A head unit that records what the library tells it, and answers as a test sets it to. The objects for the
/// library are made by the make... functions; each holds the record they share.
class RecordingHeadUnit : public std::enable_shared_from_this<RecordingHeadUnit> {
public:
    using Reaction = std::function<void(const Event&)>;

    static std::shared_ptr<RecordingHeadUnit> make() { return std::make_shared<RecordingHeadUnit>(); }

    std::unique_ptr<wifi_projection_protocol::WifiProjectionProtocolCallback> makeCallback();
    std::unique_ptr<wifi_projection_protocol::WifiProjectionInfoProvider> makeInfoProvider();
    std::unique_ptr<wifi_projection_protocol::WifiProjectionProtocolLoggingCallback> makeLog();

    /// Runs on the library's thread, within the callback and after its event is recorded.
    void setReaction(Reaction reaction);
    void setAnswer(int answer);
    void setWifiInfo(const std::string& text, int number);
    void addKnown(const std::string& clientId);

    /// Waits for `count` events of this kind. @return false after kPatience.
    bool waitFor(Event::Kind kind, std::size_t count = 1);

    std::vector<Event> events(Event::Kind kind) const;
    std::size_t count(Event::Kind kind) const { return events(kind).size(); }
    std::string log() const;

    /// How many of the three objects the library has released.
    int releaseCount() const;

private:
    class Callback;
    class InfoProvider;
    class Log;

    void record(const Event& event);
    void release();

    mutable std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex.
    std::vector<Event> recorded;
    std::set<std::string> known;
    Reaction reaction;
    int answer = 0;
    std::string wifiText;
    int wifiNumber = 40;
    std::string lines;
    int releases = 0;
};

}  // namespace wpp_test
