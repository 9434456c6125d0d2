#include "Tests/Support/NoNewThreads.h"

#include <gtest/gtest.h>

#include <system_error>
#include <thread>

namespace {

TEST(NoNewThreads, WithinItsScopeAThreadCannotBeStarted) {
    const wpp_test::NoNewThreads shortage;
    EXPECT_THROW(std::thread([] {}), std::system_error);
}

TEST(NoNewThreads, AfterItsScopeThreadsStartAgain) {
    { const wpp_test::NoNewThreads shortage; }
    std::thread([] {}).join();
}

}  // namespace
