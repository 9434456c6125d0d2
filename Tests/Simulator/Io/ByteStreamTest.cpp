#include "Simulator/private/Io/ByteStream.h"

#include <sys/socket.h>
#include <unistd.h>

#include <memory>

#include "Tests/Simulator/LoopFixture.h"

namespace simulator {
namespace {

class ByteStreamTest : public LoopTest {
protected:
    ByteStreamTest() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends), 0);
        other.reset(ends[1]);
        stream = std::make_unique<ByteStream>(
            loop, UniqueFd(ends[0]), [this](std::string_view bytes) { received.append(bytes); },
            [this] { ++closed; });
    }

    std::string readOther(std::size_t count) {
        std::string bytes;
        stepUntil([&] {
            char chunk[65536];
            const ssize_t size = ::read(other.get(), chunk, sizeof(chunk));
            if (size > 0) {
                bytes.append(chunk, static_cast<std::size_t>(size));
            }
            return bytes.size() >= count;
        });
        return bytes;
    }

    UniqueFd other;
    std::unique_ptr<ByteStream> stream;
    std::string received;
    int closed = 0;
};

TEST_F(ByteStreamTest, HandsOnWhatArrives) {
    ASSERT_EQ(::write(other.get(), "hello", 5), 5);
    EXPECT_TRUE(stepUntil([&] { return received == "hello"; }));
}

TEST_F(ByteStreamTest, SendsMoreThanTheSocketTakesAtOnce) {
    const std::string much(4 << 20, 'x');
    stream->send(much);
    EXPECT_EQ(readOther(much.size()), much);
}

TEST_F(ByteStreamTest, ReportsTheEndOnceAfterTheLastBytes) {
    ASSERT_EQ(::write(other.get(), "last", 4), 4);
    other.reset();
    EXPECT_TRUE(stepUntil([&] { return closed == 1; }));
    EXPECT_EQ(received, "last");
    EXPECT_FALSE(stream->isOpen());
    loop.step(Milliseconds(0));
    EXPECT_EQ(closed, 1);
}

TEST_F(ByteStreamTest, SendingToAPeerThatHasGoneEndsTheStream) {
    other.reset();
    stream->send("lost");
    EXPECT_TRUE(stepUntil([&] { return closed == 1; }));
}

TEST_F(ByteStreamTest, OwnCloseIsNotReported) {
    stream->close();
    loop.step(Milliseconds(0));
    EXPECT_EQ(closed, 0);
    char byte = 0;
    EXPECT_EQ(::read(other.get(), &byte, 1), 0);
}

TEST_F(ByteStreamTest, StoppedReaderLeavesBytesAndStillLearnsOfTheEnd) {
    stream->stopReading();
    ASSERT_EQ(::write(other.get(), "unread", 6), 6);
    loop.step(Milliseconds(0));
    EXPECT_EQ(received, "");
    other.reset();
    EXPECT_TRUE(stepUntil([&] { return closed == 1; }));
    EXPECT_EQ(received, "");
}

TEST_F(ByteStreamTest, HandlerMayDestroyTheStream) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends), 0);
    const UniqueFd peer(ends[1]);
    std::unique_ptr<ByteStream> doomed;
    doomed = std::make_unique<ByteStream>(
        loop, UniqueFd(ends[0]), [&](std::string_view) { doomed.reset(); }, [] {});
    ASSERT_EQ(::write(peer.get(), "x", 1), 1);
    EXPECT_TRUE(stepUntil([&] { return doomed == nullptr; }));
}

}  // namespace
}  // namespace simulator
