#include "private/SocketBio.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <csignal>
#include <memory>
#include <string>
#include <utility>

#include "private/FileDescriptor.h"

namespace wifi_projection_protocol {
namespace {

struct Deleter {
    void operator()(BIO* bio) const { BIO_free(bio); }
};

class SocketBio : public testing::Test {
protected:
    void SetUp() override {
        int ends[2] = {-1, -1};
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
        number = ends[0];
        own = FileDescriptor(ends[0]);
        peer = FileDescriptor(ends[1]);
        bio.reset(makeSocketBio(number));
        ASSERT_TRUE(bio);
    }

    int number = -1;
    FileDescriptor own;
    FileDescriptor peer;
    std::unique_ptr<BIO, Deleter> bio;
};

TEST_F(SocketBio, CarriesBytesBothWays) {
    char bytes[8] = {};
    EXPECT_EQ(BIO_write(bio.get(), "abc", 3), 3);
    EXPECT_EQ(::recv(peer.get(), bytes, sizeof bytes, 0), 3);
    EXPECT_EQ(::send(peer.get(), "de", 2, MSG_NOSIGNAL), 2);
    EXPECT_EQ(BIO_read(bio.get(), bytes, sizeof bytes), 2);
    EXPECT_EQ(std::string(bytes, 2), "de");
}

TEST_F(SocketBio, NothingToReadMeansTryAgain) {
    char byte = 0;
    EXPECT_LT(BIO_read(bio.get(), &byte, 1), 0);
    EXPECT_TRUE(BIO_should_read(bio.get()));
}

TEST_F(SocketBio, NoRoomToWriteMeansTryAgain) {
    const std::string block(1 << 16, 'x');
    while (BIO_write(bio.get(), block.data(), static_cast<int>(block.size())) > 0) {
    }
    EXPECT_TRUE(BIO_should_write(bio.get()));
}

TEST_F(SocketBio, EndOfThePeerIsFinal) {
    peer = FileDescriptor();
    char byte = 0;
    EXPECT_LE(BIO_read(bio.get(), &byte, 1), 0);
    EXPECT_FALSE(BIO_should_retry(bio.get()));
}

TEST_F(SocketBio, WritingToAGonePeerFailsWithoutASignal) {
    ASSERT_NE(std::signal(SIGPIPE, SIG_DFL), SIG_ERR);
    peer = FileDescriptor();
    EXPECT_LT(BIO_write(bio.get(), "x", 1), 0);
    EXPECT_FALSE(BIO_should_retry(bio.get()));
}

TEST_F(SocketBio, SocketStaysOpenWhenTheBioIsFreed) {
    bio.reset();
    EXPECT_GE(::fcntl(own.get(), F_GETFD), 0);
}

}  // namespace
}  // namespace wifi_projection_protocol
