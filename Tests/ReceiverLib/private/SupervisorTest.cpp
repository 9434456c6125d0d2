#include "private/Supervisor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <vector>

namespace wifi_projection_protocol {
namespace {

using std::chrono::milliseconds;
constexpr std::chrono::seconds kPatience{10};

// Runs until it is ended.
class Work : public Supervised {
public:
    void run() override { endOrder.get_future().wait_for(kPatience); }
    Clock::time_point deadline() const override { return due; }
    void endLate() override {
        due = kNoDeadline;
        lateEnd.set_value(Clock::now());
        end();
    }

    void end() { endOrder.set_value(); }

    std::atomic<Clock::time_point> due{kNoDeadline};
    std::promise<Clock::time_point> lateEnd;

private:
    std::promise<void> endOrder;
};

TEST(Supervisor, StopWaitsForWhatRuns) {
    Supervisor supervisor;
    const auto work = std::make_shared<Work>();
    ASSERT_TRUE(supervisor.start(work));
    auto stopping = std::async(std::launch::async, [&] { supervisor.stop(); });
    EXPECT_EQ(stopping.wait_for(milliseconds(20)), std::future_status::timeout);
    work->end();
    EXPECT_EQ(stopping.wait_for(kPatience), std::future_status::ready);
}

TEST(Supervisor, ReleasesWhatHasEnded) {
    Supervisor supervisor;
    auto work = std::make_shared<Work>();
    const std::weak_ptr<Work> watched = work;
    ASSERT_TRUE(supervisor.start(work));
    work->end();
    work.reset();
    supervisor.stop();
    EXPECT_TRUE(watched.expired());
}

TEST(Supervisor, StartsNothingOnceStopped) {
    Supervisor supervisor;
    supervisor.stop();
    EXPECT_FALSE(supervisor.start(std::make_shared<Work>()));
}

TEST(Supervisor, EndsWhatIsLateAndNotBefore) {
    Supervisor supervisor;
    const auto work = std::make_shared<Work>();
    const auto deadline = Supervised::Clock::now() + milliseconds(100);
    work->due = deadline;
    auto ended = work->lateEnd.get_future();
    ASSERT_TRUE(supervisor.start(work));
    ASSERT_EQ(ended.wait_for(kPatience), std::future_status::ready);
    EXPECT_GE(ended.get(), deadline);
    supervisor.stop();
}

TEST(Supervisor, TakesNoticeOfANewDeadline) {
    Supervisor supervisor;
    const auto work = std::make_shared<Work>();
    auto ended = work->lateEnd.get_future();
    ASSERT_TRUE(supervisor.start(work));
    EXPECT_EQ(ended.wait_for(milliseconds(20)), std::future_status::timeout);
    work->due = Supervised::Clock::now() + milliseconds(20);
    supervisor.recheck();
    EXPECT_EQ(ended.wait_for(kPatience), std::future_status::ready);
    supervisor.stop();
}

TEST(Supervisor, RunsManyAtOnce) {
    Supervisor supervisor;
    std::vector<std::shared_ptr<Work>> works;
    for (int i = 0; i < 50; ++i) {
        works.push_back(std::make_shared<Work>());
        ASSERT_TRUE(supervisor.start(works.back()));
    }
    for (const auto& work : works) {
        work->end();
    }
    supervisor.stop();
    for (const auto& work : works) {
        EXPECT_EQ(work.use_count(), 1);
    }
}

TEST(Supervisor, StartWaitsForRoomAndNoLonger) {
    Supervisor supervisor(1, milliseconds(100));
    const auto first = std::make_shared<Work>();
    const auto second = std::make_shared<Work>();
    ASSERT_TRUE(supervisor.start(first));
    const auto begin = Supervised::Clock::now();
    EXPECT_FALSE(supervisor.start(second));
    EXPECT_GE(Supervised::Clock::now() - begin, milliseconds(100));
    EXPECT_EQ(second.use_count(), 1);
    first->end();
    supervisor.stop();
}

TEST(Supervisor, StartTakesTheRoomOfWhatEnds) {
    Supervisor supervisor(1, kPatience);
    const auto first = std::make_shared<Work>();
    const auto second = std::make_shared<Work>();
    ASSERT_TRUE(supervisor.start(first));
    auto started = std::async(std::launch::async, [&] { return supervisor.start(second); });
    EXPECT_EQ(started.wait_for(milliseconds(20)), std::future_status::timeout);
    first->end();
    EXPECT_TRUE(started.get());
    second->end();
    supervisor.stop();
}

}  // namespace
}  // namespace wifi_projection_protocol
