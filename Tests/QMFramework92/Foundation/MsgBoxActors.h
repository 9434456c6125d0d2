#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Foundation/QMEvent.h"
#include "Foundation/QMLMsgBox.h"
#include "Foundation/QMSync.h"
#include "Tests/Support/Deadline.h"

namespace wpp_test {

/// A message without a flag or a priority.
inline QMMsgRecord messageOf(std::uint32_t sid, std::uint32_t msgId, const std::string& bytes = {}) {
    return {sid, msgId, 0, bytes.empty() ? nullptr : bytes.data(), static_cast<std::uint32_t>(bytes.size()),
            0};
}

/// A handler whose calls are given by the test.
class FunctionHandler : public QMIMsgHandler {
public:
    using Message = std::function<void(std::uint32_t, const void*, std::uint32_t)>;
    using Event = std::function<void(std::uint32_t, std::uint32_t)>;

    explicit FunctionHandler(Message messageCall, Event eventCall = {})
        : onMessage(std::move(messageCall)), onEvent(std::move(eventCall)) {}
    explicit FunctionHandler(Event eventCall) : onEvent(std::move(eventCall)) {}

    void OnMessage(std::uint32_t msgId, const void* buffer, std::uint32_t size) override {
        onMessage(msgId, buffer, size);
    }
    void OnEvent(std::uint32_t eventId, std::uint32_t param) override { onEvent(eventId, param); }

private:
    Message onMessage;
    Event onEvent;
};

/// Writes down what it is called with, in the order of the calls: "message 5 bytes", "event 3 17".
class Recorder : public QMIMsgHandler {
public:
    void OnMessage(std::uint32_t msgId, const void* buffer, std::uint32_t size) override {
        const std::string bytes(buffer == nullptr ? "" : static_cast<const char*>(buffer), size);
        add("message " + std::to_string(msgId) + (bytes.empty() ? "" : " " + bytes));
    }
    void OnEvent(std::uint32_t eventId, std::uint32_t param) override {
        add("event " + std::to_string(eventId) + " " + std::to_string(param));
    }

    std::vector<std::string> entries() {
        QMSyncGuard guard(lock);
        return recorded;
    }

    /// @return the entries once there are `count` of them, or what there is after the generous limit.
    std::vector<std::string> waitForEntries(std::size_t count) {
        waitUntil([&] { return entries().size() >= count; });
        return entries();
    }

private:
    void add(const std::string& entry) {
        QMSyncGuard guard(lock);
        recorded.push_back(entry);
    }

    QMSync lock;
    std::vector<std::string> recorded QM_GUARDED_BY(lock);
};

/// A handler that keeps the box's thread in its call until it is opened, once. What holds it needs neither memory
/// nor a descriptor, so that it holds also while a test lets these run out.
class Gate : public QMIMsgHandler {
public:
    void OnMessage(std::uint32_t /*msgId*/, const void* /*buffer*/, std::uint32_t /*size*/) override {
        hold();
    }
    void OnEvent(std::uint32_t /*eventId*/, std::uint32_t /*param*/) override { hold(); }

    void waitUntilEntered() { ASSERT_EQ(QMEvent::WaitEvent(&entered, 10000), 0); }
    void open() { opened.set_value(); }

private:
    void hold() {
        entered.SetEvent();
        EXPECT_EQ(isOpen.wait_for(kGenerousLimit), std::future_status::ready);
    }

    QMEvent entered;
    std::promise<void> opened;
    std::future<void> isOpen = opened.get_future();
};

/// Runs a box on a thread of its own, for the length of a scope.
class BoxRun {
public:
    explicit BoxRun(QMLMsgBox& boxToRun, std::uint32_t unitId = 7) : box(boxToRun) {
        EXPECT_TRUE(box.PrepareRun());
        thread = std::thread([this, unitId] { EXPECT_EQ(box.Run(unitId), 0); });
        EXPECT_EQ(box.WaitReady(10000), 0);
    }
    ~BoxRun() { stop(); }
    BoxRun(const BoxRun&) = delete;
    BoxRun& operator=(const BoxRun&) = delete;

    /// Stops the box after it has delivered all that was queued before.
    void finish() {
        constexpr int kLast = 0x7FFFFFFF;
        QMEvent reached;
        FunctionHandler last([&reached](std::uint32_t, std::uint32_t) { reached.SetEvent(); });
        EXPECT_TRUE(box.RegisterHandler(kLast, &last));
        EXPECT_EQ(box.SetEvent(kLast, 0, false), 0);
        EXPECT_EQ(QMEvent::WaitEvent(&reached, 10000), 0);
        EXPECT_TRUE(box.RemoveHandler(kLast));
        stop();
    }

    void stop() {
        if (thread.joinable()) {
            box.RequestStop();
            thread.join();
        }
    }

private:
    QMLMsgBox& box;
    std::thread thread;
};

}  // namespace wpp_test
