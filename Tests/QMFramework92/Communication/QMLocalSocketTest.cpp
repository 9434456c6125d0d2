#include "Communication/private/QMLocalSocket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

#include "Tests/Support/Deadline.h"
#include "Tests/Support/FailingCall.h"

namespace {

using namespace std::chrono_literals;

class QMLocalSocketWait : public testing::Test {
protected:
    QMLocalSocketWait() {
        for (auto& pair : pairs) {
            EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), 0);
        }
    }
    ~QMLocalSocketWait() override {
        for (const auto& pair : pairs) {
            close(pair[0]);
            close(pair[1]);
        }
    }

    std::array<std::array<int, 2>, 2> pairs{};
    std::array<int, 2> ready{-1, -1};
};

TEST_F(QMLocalSocketWait, ReportsOnlyWhatIsReadable) {
    const std::array<int, 2> watched{pairs[0][0], pairs[1][0]};
    ASSERT_EQ(write(pairs[1][1], "x", 1), 1);
    EXPECT_EQ(qm_WaitReadable(watched.data(), 2, ready.data(), 2, 5s), 1);
    EXPECT_EQ(ready[0], pairs[1][0]);
}

TEST_F(QMLocalSocketWait, HasRoomForMoreThanAFew) {
    std::array<int, 100> many{};
    ASSERT_EQ(write(pairs[0][1], "x", 1), 1);
    EXPECT_EQ(qm_WaitReadable(&pairs[0][0], 1, many.data(), many.size(), 5s), 1);
    EXPECT_EQ(many[0], pairs[0][0]);
}

TEST_F(QMLocalSocketWait, TimesOut) {
    const wpp_test::Stopwatch watch;
    EXPECT_EQ(qm_WaitReadable(&pairs[0][0], 1, ready.data(), 2, 100ms), kQMWaitTimedOut);
    EXPECT_GE(watch.elapsed(), 99ms);
    EXPECT_LT(watch.elapsed(), 5s);
}

TEST_F(QMLocalSocketWait, DescriptorThatIsNoneTimesOut) {
    const int none = -3;
    const wpp_test::Stopwatch watch;
    EXPECT_EQ(qm_WaitReadable(&none, 1, ready.data(), 2, 100ms), kQMWaitTimedOut);
    EXPECT_GE(watch.elapsed(), 99ms);
}

TEST_F(QMLocalSocketWait, NullArraysAreInvalid) {
    EXPECT_EQ(qm_WaitReadable(nullptr, 1, ready.data(), 2, 100ms), kQMWaitInvalid);
    EXPECT_EQ(qm_WaitReadable(&pairs[0][0], 1, nullptr, 2, 100ms), kQMWaitInvalid);
}

TEST_F(QMLocalSocketWait, FailsWithoutAFreeDescriptor) {
    const wpp_test::FailingCall none(wpp_test::SystemCall::kEpollCreate, EMFILE);
    EXPECT_EQ(qm_WaitReadable(&pairs[0][0], 1, ready.data(), 2, 100ms), kQMWaitFailed);
}

TEST(QMLocalSocketAddress, NameIsAPathInTheFileSystem) {
    const sockaddr_un address = qm_MakeSocketAddress("WPP_SOCKET_TO_WPP");
    EXPECT_EQ(address.sun_family, AF_UNIX);
    EXPECT_STREQ(address.sun_path, "WPP_SOCKET_TO_WPP");
}

TEST(QMLocalSocketAddress, NameIsCutTo107Characters) {
    const sockaddr_un address = qm_MakeSocketAddress(std::string(200, 'n').c_str());
    EXPECT_EQ(std::string(address.sun_path), std::string(107, 'n'));
}

}  // namespace
