// Messages into a box that another thread serves, from the first push until the last one is handled: a burst, and
// single messages into a box that has nothing to do.

#include "Foundation/QMLMsgBox.h"

#include <benchmark/benchmark.h>
#include <semaphore.h>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>

#include <array>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "Benchmarks/Support/BareEvent.h"
#include "Benchmarks/Support/BareLock.h"
#include "Benchmarks/Support/OneCpu.h"
#include "Foundation/QMWorker.h"

namespace {

constexpr std::uint32_t kSid = 1;
constexpr std::int64_t kBurst = 200;
constexpr int kNoLimit = -1;
using Payload = std::array<std::uint8_t, 16>;

/// Counts what is handled and wakes who waits for the last of a number of messages.
class Tally {
public:
    Tally() { sem_init(&reached, 0, 0); }
    ~Tally() { sem_destroy(&reached); }
    Tally(const Tally&) = delete;
    Tally& operator=(const Tally&) = delete;

    /// Before the messages are pushed.
    void expect(std::int64_t count) { missing = count; }
    void add(const void* bytes) {
        benchmark::DoNotOptimize(bytes);
        if (--missing == 0) {
            sem_post(&reached);
        }
    }
    void wait() { sem_wait(&reached); }

private:
    sem_t reached{};
    std::int64_t missing = 0;
};

class OurBox : private QMIMsgHandler {
public:
    explicit OurBox(Tally& tallyOfHandled) : tally(tallyOfHandled) {
        worker.GetMsgBox().RegisterHandler(kSid, this);
        worker.Start("Worker");
    }
    ~OurBox() { worker.Stop(QM_WAIT_INFINITE); }
    OurBox(const OurBox&) = delete;
    OurBox& operator=(const OurBox&) = delete;

    void push(const Payload& payload) {
        worker.GetMsgBox().PushMsg(
            {kSid, 1, 0, payload.data(), static_cast<std::uint32_t>(payload.size()), 0});
    }

private:
    void OnMessage(std::uint32_t, const void* buffer, std::uint32_t) override { tally.add(buffer); }
    void OnEvent(std::uint32_t, std::uint32_t) override {}

    Tally& tally;
    QMWorker worker{1};
};

/// The calls of a box and nothing else: a signal for each push, a wait set for each wait, and a drain after each
/// delivery that takes the signals one by one.
class PrescribedBox {
public:
    explicit PrescribedBox(Tally& tallyOfHandled) : tally(tallyOfHandled) {
        handlers[kSid] = &tally;
        server = std::thread([this] { serve(); });
    }
    ~PrescribedBox() {
        stop.set();
        server.join();
    }
    PrescribedBox(const PrescribedBox&) = delete;
    PrescribedBox& operator=(const PrescribedBox&) = delete;

    void push(const Payload& payload) {
        const std::lock_guard<wpp_benchmark::BareLock> guard(queueLock);
        auto copy = std::make_unique<std::uint8_t[]>(payload.size());
        std::memcpy(copy.get(), payload.data(), payload.size());
        messages.push_back({kSid, std::move(copy)});
        wake.set();
    }

private:
    struct Message {
        std::uint32_t sid;
        std::unique_ptr<std::uint8_t[]> copy;
    };

    void serve() {
        for (;;) {
            if (isIdle() && wpp_benchmark::BareEvent::wait<2>({&stop, &wake}, kNoLimit) == 0) {
                return;
            }
            while (deliver()) {
            }
            wake.drain();
        }
    }

    bool isIdle() {
        const std::lock_guard<wpp_benchmark::BareLock> guard(queueLock);
        return messages.empty();
    }

    bool deliver() {
        Message message;
        {
            const std::lock_guard<wpp_benchmark::BareLock> guard(queueLock);
            if (messages.empty()) {
                return false;
            }
            message = std::move(messages.front());
            messages.pop_front();
        }
        const std::lock_guard<wpp_benchmark::BareLock> guard(handlerLock);
        handlers.find(message.sid)->second->add(message.copy.get());
        return true;
    }

    Tally& tally;
    wpp_benchmark::BareEvent stop;
    wpp_benchmark::BareEvent wake;
    wpp_benchmark::BareLock handlerLock;
    std::map<std::uint32_t, Tally*> handlers;
    wpp_benchmark::BareLock queueLock;
    std::deque<Message> messages;
    std::thread server;
};

class AsioBox {
public:
    explicit AsioBox(Tally& tallyOfHandled) : tally(tallyOfHandled) {}
    ~AsioBox() {
        context.stop();
        server.join();
    }
    AsioBox(const AsioBox&) = delete;
    AsioBox& operator=(const AsioBox&) = delete;

    void push(const Payload& payload) {
        asio::post(context, [this, copy = payload] { tally.add(copy.data()); });
    }

private:
    Tally& tally;
    asio::io_context context;
    asio::executor_work_guard<asio::io_context::executor_type> work{context.get_executor()};
    std::thread server{[this] { context.run(); }};
};

/// From the first push of `count` messages until the last one is handled.
template <class Box, std::int64_t count>
void messages(benchmark::State& state) {
    const wpp_benchmark::OneCpu oneCpu;
    const Payload payload{};
    Tally tally;
    Box box(tally);
    for ([[maybe_unused]] const auto unused : state) {
        tally.expect(count);
        for (std::int64_t i = 0; i < count; ++i) {
            box.push(payload);
        }
        tally.wait();
    }
}
BENCHMARK_TEMPLATE(messages, OurBox, kBurst)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Name("message-box/burst of 200/ours");
BENCHMARK_TEMPLATE(messages, PrescribedBox, kBurst)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Name("message-box/burst of 200/prescribed");
BENCHMARK_TEMPLATE(messages, AsioBox, kBurst)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Name("message-box/burst of 200/asio");
BENCHMARK_TEMPLATE(messages, OurBox, 1)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Name("message-box/one into an idle box/ours");
BENCHMARK_TEMPLATE(messages, PrescribedBox, 1)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Name("message-box/one into an idle box/prescribed");
BENCHMARK_TEMPLATE(messages, AsioBox, 1)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Name("message-box/one into an idle box/asio");

}  // namespace
