#include "Communication/QMOpenSockets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>
#include <thread>

#include "Tests/Support/Deadline.h"
#include "Tests/Support/HeapWatch.h"
#include "Tests/Support/ProcessState.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class QMOpenSocketsTest : public testing::Test {
protected:
    QMOpenSocketsTest() {
        std::array<int, 2> pair{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), 0);
        ours = QMDescriptor(pair[0]);
        theirs = QMDescriptor(pair[1]);
    }

    QMDescriptor ours;
    QMDescriptor theirs;
    QMOpenSockets sockets;
};

TEST_F(QMOpenSocketsTest, AdoptedSocketIsContainedUntilItIsClosed) {
    const int number = sockets.adopt(std::move(ours));
    EXPECT_TRUE(sockets.contains(number));
    sockets.close(number);
    EXPECT_FALSE(sockets.contains(number));
    EXPECT_EQ(wpp_test::openDescriptors().count(number), 0U);
}

TEST_F(QMOpenSocketsTest, SocketIsAdoptedWithoutMemoryIntoReservedRoom) {
    ASSERT_TRUE(sockets.reserve());
    const wpp_test::EmptyHeap empty;
    EXPECT_FALSE(sockets.contains(ours.get()));
    const int number = sockets.adopt(std::move(ours));
    EXPECT_TRUE(sockets.contains(number));
    EXPECT_FALSE(sockets.reserve());
}

TEST_F(QMOpenSocketsTest, ListIsInAscendingOrder) {
    const int first = sockets.adopt(std::move(theirs));
    const int second = sockets.adopt(std::move(ours));
    EXPECT_THAT(sockets.list(), ElementsAre(std::min(first, second), std::max(first, second)));
}

TEST_F(QMOpenSocketsTest, CloseAllEmptiesTheSet) {
    sockets.adopt(std::move(ours));
    sockets.closeAll();
    EXPECT_THAT(sockets.list(), IsEmpty());
    char byte = 0;
    EXPECT_EQ(recv(theirs.get(), &byte, 1, 0), 0);
}

TEST_F(QMOpenSocketsTest, ShutdownEndsBothDirectionsAndKeepsTheSocket) {
    const int number = sockets.adopt(std::move(ours));
    sockets.shutdownAll();
    char byte = 0;
    EXPECT_EQ(recv(theirs.get(), &byte, 1, 0), 0);
    EXPECT_EQ(recv(number, &byte, 1, 0), 0);
    EXPECT_TRUE(sockets.contains(number));
}

TEST_F(QMOpenSocketsTest, ReleaseEndsReadingAfterWhatHasArrivedAndLeavesSending) {
    const int number = sockets.adopt(std::move(ours));
    ASSERT_EQ(send(theirs.get(), "ab", 2, MSG_NOSIGNAL), 2);
    sockets.releaseBlocked();
    std::array<char, 4> bytes{};
    EXPECT_EQ(recv(number, bytes.data(), bytes.size(), MSG_WAITALL), 2);
    EXPECT_EQ(recv(number, bytes.data(), bytes.size(), MSG_WAITALL), 0);
    EXPECT_EQ(send(number, "c", 1, MSG_NOSIGNAL), 1);
    EXPECT_EQ(recv(theirs.get(), bytes.data(), bytes.size(), 0), 1);
}

TEST_F(QMOpenSocketsTest, ReleaseEndsASendThatThePeerDoesNotRead) {
    const int number = sockets.adopt(std::move(ours));
    std::thread sender([number] {
        const std::string flood(8 << 20, 'x');
        EXPECT_LT(send(number, flood.data(), flood.size(), MSG_NOSIGNAL), static_cast<ssize_t>(flood.size()));
    });
    EXPECT_TRUE(wpp_test::waitUntil([number] {
        pollfd watched{number, POLLOUT, 0};
        return poll(&watched, 1, 0) == 0;
    }));
    sockets.releaseBlocked();
    sender.join();
}

TEST_F(QMOpenSocketsTest, ClosingAnUnknownNumberDoesNothing) {
    sockets.close(theirs.get());
    EXPECT_EQ(wpp_test::openDescriptors().count(theirs.get()), 1U);
}

}  // namespace
