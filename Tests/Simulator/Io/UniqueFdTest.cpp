#include "Simulator/private/Io/UniqueFd.h"

#include <fcntl.h>
#include <gtest/gtest.h>

namespace simulator {
namespace {

bool isOpen(int fd) {
    return ::fcntl(fd, F_GETFD) >= 0;
}

int openSomething() {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

TEST(UniqueFd, ClosesWhatItHoldsAtTheEnd) {
    const int fd = openSomething();
    { const UniqueFd owner(fd); }
    EXPECT_FALSE(isOpen(fd));
}

TEST(UniqueFd, MovedFromHoldsNothing) {
    UniqueFd first(openSomething());
    const int fd = first.get();
    const UniqueFd second(std::move(first));
    EXPECT_FALSE(
        static_cast<bool>(first));  // NOLINT(bugprone-use-after-move): what is left is the matter here
    EXPECT_EQ(second.get(), fd);
}

TEST(UniqueFd, AssignmentClosesWhatWasHeld) {
    UniqueFd owner(openSomething());
    const int former = owner.get();
    owner = UniqueFd(openSomething());
    EXPECT_TRUE(isOpen(owner.get()));
    EXPECT_TRUE(former == owner.get() || !isOpen(former));
}

TEST(UniqueFd, ReleasedDescriptorStaysOpen) {
    int fd = -1;
    {
        UniqueFd owner(openSomething());
        fd = owner.release();
    }
    EXPECT_TRUE(isOpen(fd));
    const UniqueFd closer(fd);
}

}  // namespace
}  // namespace simulator
