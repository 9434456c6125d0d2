#include "private/PendingStart.h"

#include <gtest/gtest.h>

#include <chrono>

namespace wifi_projection_protocol {
namespace {

bool isReady(const std::future<std::uint32_t>& future) {
    return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

TEST(PendingStart, WaitsForThePhone) {
    PendingStart start;
    auto result = start.begin();
    EXPECT_FALSE(isReady(result));
    EXPECT_EQ(start.answer(5), 0U);
    EXPECT_EQ(result.get(), 5U);
}

TEST(PendingStart, AnswerWithoutAStartIsNotDue) {
    PendingStart start;
    EXPECT_EQ(start.answer(5), std::nullopt);
}

TEST(PendingStart, NewerStartEndsTheOlderWithZero) {
    PendingStart start;
    auto older = start.begin();
    auto newer = start.begin();
    EXPECT_EQ(older.get(), 0U);
    EXPECT_FALSE(isReady(newer));
}

TEST(PendingStart, AnswerToTheOlderIsNotTakenForTheNewer) {
    PendingStart start;
    auto older = start.begin();
    auto newer = start.begin();
    EXPECT_EQ(start.answer(1), 1U);
    EXPECT_FALSE(isReady(newer));
    EXPECT_EQ(start.answer(2), 0U);
    EXPECT_EQ(newer.get(), 2U);
}

TEST(PendingStart, EndIsZeroForWhatWaits) {
    PendingStart start;
    auto result = start.begin();
    start.end();
    EXPECT_EQ(result.get(), 0U);
}

TEST(PendingStart, EndIsZeroForWhatComesLater) {
    PendingStart start;
    start.end();
    EXPECT_EQ(start.begin().get(), 0U);
}

}  // namespace
}  // namespace wifi_projection_protocol
