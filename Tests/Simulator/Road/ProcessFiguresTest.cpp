#include "Simulator/private/Road/ProcessFigures.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <thread>

#include "Simulator/private/Io/UniqueFd.h"

namespace simulator {
namespace {

TEST(ProcessFigures, CountWhatTheProcessHas) {
    std::thread([] {}).join();  // a sanitizer starts a thread of its own with the first one
    const ProcessFigures before = ProcessFigures::of(::getpid());
    EXPECT_GT(before.memoryKb, 0u);
    const UniqueFd another(::dup(STDIN_FILENO));
    std::thread waiting([&] {
        const ProcessFigures now = ProcessFigures::of(::getpid());
        EXPECT_EQ(now.descriptors, before.descriptors + 1);
        EXPECT_EQ(now.threads, before.threads + 1);
        EXPECT_TRUE(now.exceed(before));
    });
    waiting.join();
}

TEST(ProcessFigures, CountTheWaitsApart) {
    const ProcessFigures before = ProcessFigures::of(::getpid());
    const UniqueFd wait(::epoll_create1(EPOLL_CLOEXEC));
    const ProcessFigures now = ProcessFigures::of(::getpid());
    EXPECT_EQ(now.waits, before.waits + 1);
    EXPECT_TRUE(now.areAsManyAs(before));
}

TEST(ProcessFigures, MeasureTheMemoryThatIsWritten) {
    constexpr std::size_t kSize = 32 << 20;
    const std::size_t before = ProcessFigures::of(::getpid()).writtenKb;
    const auto block = std::make_unique<char[]>(kSize);
    std::memset(block.get(), 1, kSize);
    EXPECT_GE(ProcessFigures::of(::getpid()).writtenKb, before + (30 << 10));
}

TEST(ProcessFigures, AreAsManyWithAsManyDescriptorsAndThreads) {
    const ProcessFigures figures{10240, 44, 6, 3, 500};
    EXPECT_TRUE(figures.areAsManyAs({5000, 44, 6, 0, 900}));
    EXPECT_FALSE(figures.areAsManyAs({10240, 45, 6, 3, 500}));
    EXPECT_FALSE(figures.areAsManyAs({10240, 44, 5, 3, 500}));
}

TEST(ProcessFigures, AreZeroOfAProcessThatIsNotThere) {
    EXPECT_EQ(ProcessFigures::of(-1).describe(), "0.0 MB, 0 descriptors, 0 waits, 0 threads");
}

TEST(ProcessFigures, ExceedOthersByAnyDescriptorOrThread) {
    const ProcessFigures earlier{10240, 44, 6, 0, 0};
    EXPECT_FALSE(earlier.exceed(earlier));
    EXPECT_TRUE((ProcessFigures{10240, 45, 6, 0, 0}.exceed(earlier)));
    EXPECT_TRUE((ProcessFigures{10240, 44, 7, 0, 0}.exceed(earlier)));
    EXPECT_FALSE((ProcessFigures{5000, 40, 5, 0, 0}.exceed(earlier)));
}

TEST(ProcessFigures, ExceedOthersByMemoryBeyondTheAllocatorsSlack) {
    const ProcessFigures earlier{10240, 44, 6, 0, 0};
    EXPECT_FALSE((ProcessFigures{10240 + 1024 + 2048, 44, 6, 0, 0}.exceed(earlier)));
    EXPECT_TRUE((ProcessFigures{10240 + 1024 + 2049, 44, 6, 0, 0}.exceed(earlier)));
}

}  // namespace
}  // namespace simulator
