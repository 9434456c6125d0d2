#include "Simulator/private/Road/ProcessFigures.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "Simulator/private/Io/UniqueFd.h"

namespace simulator {
namespace {

TEST(ProcessFigures, CountWhatTheProcessHas) {
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

TEST(ProcessFigures, AreZeroOfAProcessThatIsNotThere) {
    EXPECT_EQ(ProcessFigures::of(-1).describe(), "0.0 MB, 0 descriptors, 0 threads");
}

TEST(ProcessFigures, ExceedOthersByAnyDescriptorOrThread) {
    const ProcessFigures earlier{10240, 44, 6};
    EXPECT_FALSE(earlier.exceed(earlier));
    EXPECT_TRUE((ProcessFigures{10240, 45, 6}.exceed(earlier)));
    EXPECT_TRUE((ProcessFigures{10240, 44, 7}.exceed(earlier)));
    EXPECT_FALSE((ProcessFigures{5000, 40, 5}.exceed(earlier)));
}

TEST(ProcessFigures, ExceedOthersByMemoryBeyondTheAllocatorsSlack) {
    const ProcessFigures earlier{10240, 44, 6};
    EXPECT_FALSE((ProcessFigures{10240 + 1024 + 2048, 44, 6}.exceed(earlier)));
    EXPECT_TRUE((ProcessFigures{10240 + 1024 + 2049, 44, 6}.exceed(earlier)));
}

}  // namespace
}  // namespace simulator
