#include "Simulator/private/Torture/ProcessUsage.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <thread>

#include "Foundation/QMDescriptor.h"

namespace simulator {
namespace {

TEST(ProcessUsage, CountsTheDescriptorsThatAreOpen) {
    const std::size_t before = usageOf(::getpid()).descriptors;
    const QMDescriptor one(::dup(STDIN_FILENO));
    EXPECT_EQ(usageOf(::getpid()).descriptors, before + 1);
}

TEST(ProcessUsage, CountsTheWaitsApart) {
    const ProcessUsage before = usageOf(::getpid());
    const QMDescriptor wait(::epoll_create1(EPOLL_CLOEXEC));
    EXPECT_EQ(usageOf(::getpid()).waits, before.waits + 1);
    EXPECT_EQ(usageOf(::getpid()).descriptors, before.descriptors);
}

TEST(ProcessUsage, CountsTheThreads) {
    const std::size_t before = usageOf(::getpid()).threads;
    std::size_t during = 0;
    std::thread([&during] { during = usageOf(::getpid()).threads; }).join();
    EXPECT_EQ(during, before + 1);
}

TEST(ProcessUsage, MeasuresTheMemoryThatIsWritten) {
    constexpr std::size_t kSize = 32 << 20;
    const long before = usageOf(::getpid()).memoryKiB;
    const auto block = std::make_unique<char[]>(kSize);
    std::memset(block.get(), 1, kSize);
    EXPECT_GE(usageOf(::getpid()).memoryKiB - before, 30 << 10);
}

TEST(ProcessUsage, AProcessThatDoesNotExistHoldsNothing) {
    const ProcessUsage usage = usageOf(-1);
    EXPECT_EQ(usage.descriptors, 0u);
    EXPECT_EQ(usage.threads, 0u);
    EXPECT_EQ(usage.memoryKiB, 0);
}

TEST(ProcessUsage, IsAsMuchWithAsManyDescriptorsAndThreads) {
    EXPECT_TRUE((ProcessUsage{3, 1, 2, 100}.isAsMuchAs({3, 0, 2, 200})));
    EXPECT_FALSE((ProcessUsage{3, 1, 2, 100}.isAsMuchAs({4, 1, 2, 100})));
    EXPECT_FALSE((ProcessUsage{3, 1, 2, 100}.isAsMuchAs({3, 1, 1, 100})));
    EXPECT_EQ(describe({3, 1, 2, 100}), "3 descriptors, 1 waits, 2 threads");
}

}  // namespace
}  // namespace simulator
