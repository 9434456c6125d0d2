#include "Tests/ReceiverLib/Support/RecordingHeadUnit.h"

#include <algorithm>
#include <utility>

#include "Tests/ReceiverLib/Support/PhoneChannel.h"

namespace wpp_test {

using wifi_projection_protocol::ClientInfo;
using wifi_projection_protocol::InetSocketAddress;
using Lock = std::unique_lock<std::mutex>;

class RecordingHeadUnit::Callback : public wifi_projection_protocol::WifiProjectionProtocolCallback {
public:
    explicit Callback(std::shared_ptr<RecordingHeadUnit> shared) : unit(std::move(shared)) {}
    ~Callback() override { unit->release(); }

    int canStartProjection(const ClientInfo& client) override {
        unit->record({Event::kQuestion, client, 0, {}});
        const Lock lock(unit->mutex);
        return unit->answer;
    }
    void onReadyForProjection(const ClientInfo& client) override {
        unit->record({Event::kReady, client, 0, {}});
    }
    void onWifiConnectStatus(const std::string& clientId, const std::uint32_t& status,
                             const std::string& text) override {
        ClientInfo client;
        client.clientId = clientId;
        unit->record({Event::kStatus, client, status, text});
    }
    void onWifiVersionResponseFailure(const ClientInfo& client, const std::uint32_t& value) override {
        unit->record({Event::kVersionFailure, client, value, {}});
    }
    void onClientLost(const ClientInfo& client) override { unit->record({Event::kLost, client, 0, {}}); }
    bool isClientKnown(const std::string& clientId) override {
        const Lock lock(unit->mutex);
        return unit->known.count(clientId) != 0;
    }

private:
    const std::shared_ptr<RecordingHeadUnit> unit;
};

class RecordingHeadUnit::InfoProvider : public wifi_projection_protocol::WifiProjectionInfoProvider {
public:
    explicit InfoProvider(std::shared_ptr<RecordingHeadUnit> shared) : unit(std::move(shared)) {}
    ~InfoProvider() override { unit->release(); }

    InetSocketAddress projectionAddress() override { return {"192.168.1.1", 30516}; }
    std::string wifiInfo1() override { return text("1"); }
    std::string wifiInfo2() override { return text("2"); }
    std::string wifiInfo3() override { return text("3"); }
    int wifiInfo4() override {
        const Lock lock(unit->mutex);
        return unit->wifiNumber;
    }

private:
    std::string text(const char* number) const {
        const Lock lock(unit->mutex);
        return unit->wifiText + number;
    }

    const std::shared_ptr<RecordingHeadUnit> unit;
};

class RecordingHeadUnit::Log : public wifi_projection_protocol::WifiProjectionProtocolLoggingCallback {
public:
    explicit Log(std::shared_ptr<RecordingHeadUnit> shared) : unit(std::move(shared)) {}
    ~Log() override { unit->release(); }

    void log(int, const std::string& text) override {
        const Lock lock(unit->mutex);
        unit->lines += text + "\n";
    }

private:
    const std::shared_ptr<RecordingHeadUnit> unit;
};

std::unique_ptr<wifi_projection_protocol::WifiProjectionProtocolCallback> RecordingHeadUnit::makeCallback() {
    return std::make_unique<Callback>(shared_from_this());
}

std::unique_ptr<wifi_projection_protocol::WifiProjectionInfoProvider> RecordingHeadUnit::makeInfoProvider() {
    return std::make_unique<InfoProvider>(shared_from_this());
}

std::unique_ptr<wifi_projection_protocol::WifiProjectionProtocolLoggingCallback>
RecordingHeadUnit::makeLog() {
    return std::make_unique<Log>(shared_from_this());
}

void RecordingHeadUnit::setReaction(Reaction wanted) {
    const Lock lock(mutex);
    reaction = std::move(wanted);
}

void RecordingHeadUnit::setAnswer(int wanted) {
    const Lock lock(mutex);
    answer = wanted;
}

void RecordingHeadUnit::setWifiInfo(const std::string& text, int number) {
    const Lock lock(mutex);
    wifiText = text;
    wifiNumber = number;
}

void RecordingHeadUnit::addKnown(const std::string& clientId) {
    const Lock lock(mutex);
    known.insert(clientId);
}

bool RecordingHeadUnit::waitFor(Event::Kind kind, std::size_t wanted) {
    Lock lock(mutex);
    return changed.wait_for(lock, kPatience, [&] {
        const auto found = std::count_if(recorded.begin(), recorded.end(),
                                         [&](const Event& event) { return event.kind == kind; });
        return static_cast<std::size_t>(found) >= wanted;
    });
}

std::vector<Event> RecordingHeadUnit::events(Event::Kind kind) const {
    const Lock lock(mutex);
    std::vector<Event> found;
    std::copy_if(recorded.begin(), recorded.end(), std::back_inserter(found),
                 [&](const Event& event) { return event.kind == kind; });
    return found;
}

std::string RecordingHeadUnit::log() const {
    const Lock lock(mutex);
    return lines;
}

int RecordingHeadUnit::releaseCount() const {
    const Lock lock(mutex);
    return releases;
}

void RecordingHeadUnit::record(const Event& event) {
    Reaction react;
    {
        const Lock lock(mutex);
        recorded.push_back(event);
        react = reaction;
        changed.notify_all();
    }
    if (react) {
        react(event);
    }
}

void RecordingHeadUnit::release() {
    const Lock lock(mutex);
    ++releases;
}

}  // namespace wpp_test
