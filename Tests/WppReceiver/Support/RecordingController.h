#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "Proxy/IWifiProjectionProtocolCallbacks.h"

namespace wpp_test {

/// A controller that writes down each call as one line, for example "OnStartProjectionResponse(3, 1)".
/// Any thread may call.
class RecordingController final : public wifi_projection_protocol::IWifiProjectionProtocolCallbacks {
public:
    /// The TLS material that ReqGetSecureSslKey hands out; it fails while there is none.
    struct Material {
        std::string certificate;
        std::string privateKey;
        std::string caCertificate;
    };

    std::vector<std::string> calls() {
        std::lock_guard guard(mutex);
        return list;
    }

    /// Waits up to 10 s for so many calls. @return whether they came.
    bool waitForCalls(std::size_t count) {
        std::unique_lock guard(mutex);
        return changed.wait_for(guard, std::chrono::seconds(10),
                                [this, count] { return list.size() >= count; });
    }

    /// Runs within CanStartProjection, after it was written down.
    void onQuestion(std::function<void()> action) { questionAction = std::move(action); }

    void handOut(Material given) {
        material = std::move(given);
        hasMaterial = true;
    }

    void OnReadyForProjection(std::uint8_t id, const std::string& info1, const std::string& info2,
                              const std::string& info3) override {
        record("OnReadyForProjection(" + std::to_string(id) + ", " + info1 + ", " + info2 + ", " + info3 +
               ")");
    }

    void OnWifiVersionResponseFailure(std::uint8_t id, const std::string& info1, const std::string& info2,
                                      const std::string& info3, const std::uint32_t& value) override {
        record("OnWifiVersionResponseFailure(" + std::to_string(id) + ", " + info1 + ", " + info2 + ", " +
               info3 + ", " + std::to_string(value) + ")");
    }

    void OnStartProjectionResponse(std::uint8_t id, std::uint32_t result) override {
        record("OnStartProjectionResponse(" + std::to_string(id) + ", " + std::to_string(result) + ")");
    }

    void CanStartProjection(std::uint8_t id) override {
        record("CanStartProjection(" + std::to_string(id) + ")");
        if (questionAction) {
            questionAction();
        }
    }

    void OnWifiConnectStatus(std::uint8_t id, const std::uint32_t& status, const std::string& text) override {
        record("OnWifiConnectStatus(" + std::to_string(id) + ", " + std::to_string(status) + ", " + text +
               ")");
    }

    void OnClientConnected(std::uint8_t id) override {
        record("OnClientConnected(" + std::to_string(id) + ")");
    }

    void OnClientLost(std::uint8_t id) override { record("OnClientLost(" + std::to_string(id) + ")"); }

    bool ReqGetSecureSslKey(std::string& certificate, std::string& privateKey,
                            std::string& caCertificate) override {
        record("ReqGetSecureSslKey(" + certificate + privateKey + caCertificate + ")");
        if (hasMaterial) {
            certificate = material.certificate;
            privateKey = material.privateKey;
            caCertificate = material.caCertificate;
        }
        return hasMaterial;
    }

private:
    void record(std::string line) {
        std::lock_guard guard(mutex);
        list.push_back(std::move(line));
        changed.notify_all();
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> list;
    std::function<void()> questionAction;
    Material material;
    bool hasMaterial = false;
};

}  // namespace wpp_test
