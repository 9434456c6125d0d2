#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "Utility/QMLTimer.h"

namespace wpp_test {

/// Counts how often it fires and keeps the last entry and thread.
class CountingTimer : public QMLTimer {
public:
    void Fire(const QMLTimerEntry& entry) override {
        const std::lock_guard<std::mutex> guard(lock);
        entries.push_back(entry);
        firingThread = pthread_self();
        ++fired;
    }

    int count() const { return fired; }

    std::vector<QMLTimerEntry> seen() {
        const std::lock_guard<std::mutex> guard(lock);
        return entries;
    }

    pthread_t thread() {
        const std::lock_guard<std::mutex> guard(lock);
        return firingThread;
    }

private:
    std::mutex lock;
    std::vector<QMLTimerEntry> entries;
    pthread_t firingThread{};
    std::atomic<int> fired{0};
};

/// Does what the test tells it to.
class ActingTimer : public QMLTimer {
public:
    explicit ActingTimer(std::function<void()> step) : action(std::move(step)) {}
    void Fire(const QMLTimerEntry& /*entry*/) override { action(); }

private:
    std::function<void()> action;
};

}  // namespace wpp_test
