#include "Tests/Support/ProcessState.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

namespace {

TEST(ProcessState, OpenDescriptorsListsWhatIsOpen) {
    const auto before = wpp_test::openDescriptors();
    const int opened = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(wpp_test::openDescriptors().size(), before.size() + 1);
    EXPECT_EQ(wpp_test::openDescriptors().count(opened), 1U);
    close(opened);
    EXPECT_EQ(wpp_test::openDescriptors(), before);
}

TEST(NoMoreDescriptors, OpeningFailsOnlyWhileItLasts) {
    {
        const wpp_test::NoMoreDescriptors limit;
        EXPECT_EQ(open("/dev/null", O_RDONLY | O_CLOEXEC), -1);
        EXPECT_EQ(errno, EMFILE);
    }
    const int opened = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_NE(opened, -1);
    close(opened);
}

void* endAtOnce(void*) {
    return nullptr;
}

TEST(NoMoreThreads, StartingFailsOnlyWhileItLasts) {
    pthread_t thread{};
    {
        const wpp_test::NoMoreThreads limit;
        EXPECT_NE(pthread_create(&thread, nullptr, endAtOnce, nullptr), 0);
    }
    ASSERT_EQ(pthread_create(&thread, nullptr, endAtOnce, nullptr), 0);
    pthread_join(thread, nullptr);
}

TEST(ProcessState, ThreadCountIncludesARunningThread) {
    std::size_t inside = 0;
    std::thread([&inside] { inside = wpp_test::threadCount(); }).join();
    EXPECT_GE(inside, 2U);
}

}  // namespace
