#include "LibWpp/WppLocalSocketServerStream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <memory>
#include <string>

#include "Foundation/QMEvent.h"
#include "Tests/Support/FramedPeer.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace wpp_test;
using testing::IsEmpty;
using wifi_projection_protocol::WppLocalSocketServerStream;

constexpr std::uint32_t kLimitMs = 10000;

class WppLocalSocketServerStreamTest : public testing::Test {
protected:
    WppLocalSocketServerStreamTest() { directory.enter(); }

    /// A handler that answers each message with the message itself in brackets.
    WppLocalSocketServerStream::Handler echo() {
        return [this](const void* data, unsigned length) {
            const std::string answer = "[" + std::string(static_cast<const char*>(data), length) + "]";
            sent = stream.send(answer.data(), static_cast<unsigned>(answer.size()));
            answered.SetEvent();
        };
    }

    LogCapture log;
    TemporaryDirectory directory;
    QMEvent answered;
    int sent = -1;  // written before `answered` is set
    WppLocalSocketServerStream stream;
};

TEST_F(WppLocalSocketServerStreamTest, HandlerAnswersThePeerWhoseMessageItHandles) {
    ASSERT_TRUE(stream.open("S", echo()));
    FramedPeer first = FramedPeer::connectTo("S");
    FramedPeer second = FramedPeer::connectTo("S");
    ASSERT_TRUE(first.sendFrame("one"));
    EXPECT_EQ(first.receiveFrame(), "[one]");
    ASSERT_TRUE(second.sendFrame("two"));
    EXPECT_EQ(second.receiveFrame(), "[two]");
    ASSERT_TRUE(first.sendFrame("three"));
    EXPECT_EQ(first.receiveFrame(), "[three]");
}

TEST_F(WppLocalSocketServerStreamTest, SendReturnsTheSizeOfTheFrame) {
    ASSERT_TRUE(stream.open("S", echo()));
    FramedPeer peer = FramedPeer::connectTo("S");
    ASSERT_TRUE(peer.sendFrame("x"));
    ASSERT_EQ(QMEvent::WaitEvent(&answered, kLimitMs), 0);
    EXPECT_EQ(sent, 7);
}

TEST_F(WppLocalSocketServerStreamTest, SendBeforeTheFirstMessageReturnsZeroSilently) {
    ASSERT_TRUE(stream.open("S", echo()));
    const FramedPeer peer = FramedPeer::connectTo("S");
    EXPECT_EQ(stream.send("x", 1), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WppLocalSocketServerStreamTest, StreamWithoutHandlerDropsMessagesButKnowsThePeer) {
    ASSERT_TRUE(stream.open("S", nullptr));
    FramedPeer peer = FramedPeer::connectTo("S");
    ASSERT_TRUE(peer.sendFrame("dropped"));
    EXPECT_TRUE(waitUntil([&] { return stream.send("x", 1) == 5; }));
    EXPECT_EQ(peer.receiveFrame(), "x");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WppLocalSocketServerStreamTest, MessageAboveTheReceiveSizeIsHandledWhole) {
    ASSERT_TRUE(stream.open("S", echo()));
    FramedPeer peer = FramedPeer::connectTo("S");
    const std::string payload(100000, 'x');
    ASSERT_TRUE(peer.sendFrame(payload));
    EXPECT_EQ(peer.receiveFrame(), "[" + payload + "]");
}

TEST_F(WppLocalSocketServerStreamTest, NameThatIsTooLongIsLogged) {
    const std::string name(108, 'n');
    EXPECT_FALSE(stream.open(name.c_str(), echo()));
    EXPECT_TRUE(log.contains("[error] open()@WppLocalSocketServerStream("));
    EXPECT_TRUE(log.contains("ServerSocket Open Error. name=" + name));
}

TEST_F(WppLocalSocketServerStreamTest, NullNameIsLogged) {
    EXPECT_FALSE(stream.open(nullptr, echo()));
    EXPECT_TRUE(log.contains("ServerSocket Open Error. name=(null)"));
}

TEST_F(WppLocalSocketServerStreamTest, NameThatCannotBeBoundIsNotAnOpenError) {
    EXPECT_TRUE(stream.open("nowhere/S", echo()));
    EXPECT_TRUE(log.waitFor("bind err::nowhere/S  err_no[1]"));
    EXPECT_FALSE(log.contains("ServerSocket Open Error."));
}

TEST_F(WppLocalSocketServerStreamTest, CloseEndsTheConnection) {
    ASSERT_TRUE(stream.open("S", echo()));
    FramedPeer peer = FramedPeer::connectTo("S");
    stream.close();
    EXPECT_TRUE(peer.waitForClose());
}

TEST_F(WppLocalSocketServerStreamTest, StreamOpensAgainWithAnotherHandler) {
    ASSERT_TRUE(stream.open("S", nullptr));
    stream.close();
    std::filesystem::remove("S");
    ASSERT_TRUE(stream.open("S", echo()));
    FramedPeer peer = FramedPeer::connectTo("S");
    ASSERT_TRUE(peer.sendFrame("again"));
    EXPECT_EQ(peer.receiveFrame(), "[again]");
}

TEST_F(WppLocalSocketServerStreamTest, HandlerMaySendUntilTheDestructorHasStoppedIt) {
    auto closing = std::make_unique<WppLocalSocketServerStream>();
    WppLocalSocketServerStream* const sender = closing.get();
    std::promise<void> called;
    ASSERT_TRUE(closing->open("H", [&](const void*, unsigned) {
        called.set_value();
        while (sender->send("x", 1) > 0) {
        }
    }));
    FramedPeer peer = FramedPeer::connectTo("H");
    ASSERT_TRUE(peer.sendFrame("question"));
    ASSERT_EQ(called.get_future().wait_for(kGenerousLimit), std::future_status::ready);
    closing.reset();
    EXPECT_TRUE(peer.waitForClose());
}

TEST_F(WppLocalSocketServerStreamTest, DestructorEndsTheConnection) {
    auto owned = std::make_unique<WppLocalSocketServerStream>();
    ASSERT_TRUE(owned->open("S", nullptr));
    FramedPeer peer = FramedPeer::connectTo("S");
    owned.reset();
    EXPECT_TRUE(peer.waitForClose());
}

}  // namespace
