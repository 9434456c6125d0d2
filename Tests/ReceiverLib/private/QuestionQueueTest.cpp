#include "private/QuestionQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

namespace wifi_projection_protocol {
namespace {

constexpr std::chrono::seconds kPatience{10};

const auto kNever = [] { return false; };

TEST(QuestionQueue, TurnIsGrantedAtOnceWhenNobodyAsks) {
    QuestionQueue queue;
    EXPECT_TRUE(static_cast<bool>(QuestionQueue::Turn(queue, kNever)));
    EXPECT_TRUE(static_cast<bool>(QuestionQueue::Turn(queue, kNever)));
}

TEST(QuestionQueue, OneAsksAtATime) {
    QuestionQueue queue;
    std::atomic<int> asking{0};
    std::atomic<int> granted{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 100; ++round) {
                const QuestionQueue::Turn turn(queue, kNever);
                EXPECT_EQ(++asking, 1);
                granted += turn ? 1 : 0;
                --asking;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(granted, 800);
}

TEST(QuestionQueue, StopEndsTheWaitWithoutATurn) {
    QuestionQueue queue;
    const QuestionQueue::Turn holder(queue, kNever);
    auto waiting =
        std::async(std::launch::async, [&] { return static_cast<bool>(QuestionQueue::Turn(queue, kNever)); });
    EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    queue.stop();
    ASSERT_EQ(waiting.wait_for(kPatience), std::future_status::ready);
    EXPECT_FALSE(waiting.get());
}

TEST(QuestionQueue, NoTurnIsGrantedOnceStopped) {
    QuestionQueue queue;
    queue.stop();
    EXPECT_FALSE(static_cast<bool>(QuestionQueue::Turn(queue, kNever)));
}

TEST(QuestionQueue, CancelledWaitEndsWithoutATurn) {
    QuestionQueue queue;
    std::atomic<bool> cancelled{false};
    const QuestionQueue::Turn holder(queue, kNever);
    auto waiting = std::async(std::launch::async, [&] {
        return static_cast<bool>(QuestionQueue::Turn(queue, [&] { return cancelled.load(); }));
    });
    EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    cancelled = true;
    queue.recheck();
    ASSERT_EQ(waiting.wait_for(kPatience), std::future_status::ready);
    EXPECT_FALSE(waiting.get());
}

TEST(QuestionQueue, WhoLeavesTheQueueDoesNotHoldUpTheRest) {
    QuestionQueue queue;
    std::atomic<bool> cancelled{false};
    auto holder = std::make_unique<QuestionQueue::Turn>(queue, kNever);
    auto leaving = std::async(std::launch::async, [&] {
        return static_cast<bool>(QuestionQueue::Turn(queue, [&] { return cancelled.load(); }));
    });
    auto staying =
        std::async(std::launch::async, [&] { return static_cast<bool>(QuestionQueue::Turn(queue, kNever)); });
    cancelled = true;
    queue.recheck();
    EXPECT_FALSE(leaving.get());
    holder.reset();
    ASSERT_EQ(staying.wait_for(kPatience), std::future_status::ready);
    EXPECT_TRUE(staying.get());
}

}  // namespace
}  // namespace wifi_projection_protocol
