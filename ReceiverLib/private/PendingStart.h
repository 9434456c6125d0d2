#pragma once

#include <cstdint>
#include <future>
#include <mutex>
#include <optional>

namespace wifi_projection_protocol {

/// The start of projection that waits for the phone's result. The phone answers every Start in order, so
/// after a newer Start the results of the older ones are counted off and their futures end with 0 at once.
///
/// Life: open -> ended by end(), for good: what waits, and what is begun later, results in 0. Any thread.
class PendingStart {
public:
    static constexpr std::uint32_t kNoResult = 0;

    /// A Start is about to be sent.
    std::future<std::uint32_t> begin() {
        const std::lock_guard<std::mutex> lock(mutex);
        resolve(kNoResult);
        pending.emplace();
        std::future<std::uint32_t> future = pending->get_future();
        ++unanswered;
        if (ended) {
            resolve(kNoResult);
        }
        return future;
    }

    /// The phone has answered. @return how many results are still to come; empty when none was due.
    std::optional<unsigned> answer(std::uint32_t result) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (unanswered == 0) {
            return std::nullopt;
        }
        if (--unanswered == 0) {
            resolve(result);
        }
        return unanswered;
    }

    void end() {
        const std::lock_guard<std::mutex> lock(mutex);
        ended = true;
        resolve(kNoResult);
    }

private:
    void resolve(std::uint32_t result) {
        if (pending) {
            pending->set_value(result);
            pending.reset();
        }
    }

    std::mutex mutex;
    // Guarded by mutex.
    std::optional<std::promise<std::uint32_t>> pending;
    unsigned unanswered = 0;
    bool ended = false;
};

}  // namespace wifi_projection_protocol
