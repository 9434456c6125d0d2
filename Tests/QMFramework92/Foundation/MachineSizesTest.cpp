#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/types.h>

#include <cstddef>
#include <ctime>

#include "Foundation/QMSync.h"

// The sizes that differ between the machines, as they are taken for granted where the limits are described; whatever
// else the tests show holds with each of them.
namespace {

constexpr bool kIs32Bit = sizeof(void*) == 4;

TEST(MachineSizes, PointersLongsAndTimesHaveTheMachinesWidth) {
    constexpr std::size_t kWord = kIs32Bit ? 4 : 8;
    EXPECT_EQ(sizeof(long), kWord);
    EXPECT_EQ(sizeof(std::size_t), kWord);
    EXPECT_EQ(sizeof(std::time_t), kWord);
    EXPECT_EQ(sizeof(pthread_t), kWord);
}

TEST(MachineSizes, FileOffsetsHave64Bits) {
    EXPECT_EQ(sizeof(off_t), 8U);
}

TEST(MachineSizes, SemaphoreLiesWithinItsLock) {
    EXPECT_EQ(sizeof(sem_t), kIs32Bit ? 16U : 32U);
    EXPECT_GE(sizeof(QMSync), sizeof(sem_t) + 2 * sizeof(void*) + 32);
    EXPECT_LE(sizeof(QMSync), sizeof(sem_t) + 6 * sizeof(void*) + 32);
}

}  // namespace
