#include "LibWpp/WppLocalSocketClientStream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "LibWpp/ControlMessages.h"
#include "LibWpp/SppMessages.h"
#include "Tests/LibWpp/MessageChecks.h"
#include "Tests/Support/Deadline.h"
#include "Tests/Support/FailingCall.h"
#include "Tests/Support/FramedPeer.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace wifi_projection_protocol;
using namespace wpp_test;
using testing::IsEmpty;

class WppLocalSocketClientStreamTest : public testing::Test {
protected:
    WppLocalSocketClientStreamTest() { directory.enter(); }

    FramedPeer openAndAccept() {
        listener = std::make_unique<FramedListener>("S");
        EXPECT_TRUE(stream.open("S"));
        return listener->accept();
    }

    /// Takes the next message and answers it with this payload; the message is kept in `request`.
    std::thread answerWith(FramedPeer& peer, std::string payload) {
        return std::thread([this, &peer, payload = std::move(payload)] {
            request = peer.receiveFrame().value_or("nothing came");
            peer.sendFrame(payload);
        });
    }

    LogCapture log;
    TemporaryDirectory directory;
    std::unique_ptr<FramedListener> listener;
    std::string request;
    WppLocalSocketClientStream stream;
};

TEST_F(WppLocalSocketClientStreamTest, OpenWaitsUntilThePeerListens) {
    std::atomic<bool> listening{false};
    bool wasListening = false;
    std::thread opener([&] {
        stream.open("S");
        wasListening = listening;
    });
    FramedListener late("S");
    listening = true;
    const FramedPeer peer = late.accept();
    opener.join();
    EXPECT_TRUE(peer.isConnected());
    EXPECT_TRUE(wasListening);
}

TEST_F(WppLocalSocketClientStreamTest, OpenThatCannotWaitDoesNotPassForAConnection) {
    std::atomic<bool> listening{false};
    bool opened = false;
    bool wasListening = false;
    std::thread opener;
    {
        const FailingCall failing(SystemCall::kEpollCreate, EMFILE);
        opener = std::thread([&] {
            opened = stream.open("S");
            wasListening = listening;
        });
        // Once by emptying the event, then by waiting on it.
        EXPECT_TRUE(waitUntil([this] { return log.count("timedMultiWait()@QMEvent(") >= 3; }));
    }
    FramedListener late("S");
    listening = true;
    const FramedPeer peer = late.accept();
    opener.join();
    EXPECT_TRUE(opened);
    EXPECT_TRUE(wasListening);
}

TEST_F(WppLocalSocketClientStreamTest, OpenThatCanNeverWaitEndsWithTheConnection) {
    const FailingCall failing(SystemCall::kEpollCreate, EMFILE);
    FramedListener ready("S");
    EXPECT_TRUE(stream.open("S"));
    EXPECT_TRUE(ready.accept().isConnected());
}

TEST_F(WppLocalSocketClientStreamTest, SignalOfAnEarlierConnectionDoesNotPassForThisOne) {
    std::atomic<bool> listening{false};
    bool wasListening = false;
    std::thread opener;
    {
        const FailingCall failing(SystemCall::kEpollCreate, EMFILE);
        listener = std::make_unique<FramedListener>("S");
        EXPECT_TRUE(stream.open("S"));
        listener.reset();
        std::filesystem::remove("S");
        log.clear();
        opener = std::thread([&] {
            stream.open("S");
            wasListening = listening;
        });
        // Four failures until it waits for the connection, and one more for waiting again.
        EXPECT_TRUE(waitUntil([this] { return log.count("timedMultiWait()@QMEvent(") >= 5; }));
    }
    FramedListener late("S");
    listening = true;
    const FramedPeer peer = late.accept();
    opener.join();
    EXPECT_TRUE(wasListening);
}

TEST_F(WppLocalSocketClientStreamTest, MessageGoesOutAsOneFrame) {
    FramedPeer peer = openAndAccept();
    std::thread answer = answerWith(peer, "\1");
    CanStartProjectionSerializer message(7);
    stream.communicate(message);
    answer.join();
    EXPECT_EQ(request, std::string("\xD3\x07\0\0\7", 5));
}

TEST_F(WppLocalSocketClientStreamTest, OneByteAnswerIsTheResult) {
    FramedPeer peer = openAndAccept();
    std::thread answer = answerWith(peer, "\1");
    CanStartProjectionSerializer message(7);
    EXPECT_EQ(stream.communicate(message), 1);
    answer.join();
}

TEST_F(WppLocalSocketClientStreamTest, FirstFourBytesOfALongerAnswerAreTheResult) {
    FramedPeer peer = openAndAccept();
    std::thread answer = answerWith(peer, std::string("\1\2\0\0\xFF\xFF", 6));
    CanStartProjectionSerializer message(7);
    EXPECT_EQ(stream.communicate(message), 0x0201);
    answer.join();
}

TEST_F(WppLocalSocketClientStreamTest, AnswerOfTheReceiveLimitDoesNoHarm) {
    FramedPeer peer = openAndAccept();
    std::thread answer = answerWith(peer, "\1" + std::string(16383, '\0'));
    CanStartProjectionSerializer message(7);
    EXPECT_EQ(stream.communicate(message), 1);
    answer.join();
}

TEST_F(WppLocalSocketClientStreamTest, AnswerAboveTheReceiveLimitIsAFailure) {
    FramedPeer peer = openAndAccept();
    std::thread answer = answerWith(peer, std::string(16385, '\1'));
    CanStartProjectionSerializer message(7);
    EXPECT_EQ(stream.communicate(message), 0);
    answer.join();
    EXPECT_TRUE(log.contains("recv: large data"));
}

TEST_F(WppLocalSocketClientStreamTest, ExchangeWithoutConnectionReturnsZero) {
    CanStartProjectionSerializer message(7);
    EXPECT_EQ(stream.communicate(message), 0);
    EXPECT_TRUE(log.contains("Not connected"));
}

TEST_F(WppLocalSocketClientStreamTest, ResponseWithoutConnectionIsFalse) {
    ReqGetSecureSslKeySerializer question;
    ResGetSecureSslKeySerializer response;
    EXPECT_FALSE(stream.communicate(question, response));
    EXPECT_TRUE(log.contains("Not connected"));
}

TEST_F(WppLocalSocketClientStreamTest, ResponseOfTheExpectedIdIsDecoded) {
    FramedPeer peer = openAndAccept();
    std::thread answer = answerWith(peer, goldenBytes("ResGetSecureSslKey", "ordinary"));
    ReqGetSecureSslKeySerializer question;
    ResGetSecureSslKeySerializer response;
    EXPECT_TRUE(stream.communicate(question, response));
    answer.join();
    EXPECT_EQ(request, goldenBytes("ReqGetSecureSslKey", "ordinary"));
    EXPECT_EQ(response.sslCertificate, "CERT");
    EXPECT_EQ(response.sslPrivateKey, "KEY");
    EXPECT_EQ(response.sslCaCertificate, "CA");
}

TEST_F(WppLocalSocketClientStreamTest, ResponseAboveTheReceiveLimitIsDecoded) {
    FramedPeer peer = openAndAccept();
    std::thread answer = answerWith(peer, goldenBytes("ResGetSecureSslKey", "extreme"));
    ReqGetSecureSslKeySerializer question;
    ResGetSecureSslKeySerializer response;
    EXPECT_TRUE(stream.communicate(question, response));
    answer.join();
    EXPECT_EQ(response.sslCertificate.size(), 70000U);
}

TEST_F(WppLocalSocketClientStreamTest, ResponseOfAnotherIdIsLoggedAndLeftAlone) {
    FramedPeer peer = openAndAccept();
    std::thread answer = answerWith(peer, goldenBytes("OnReadyForProjection", "ordinary"));
    ReqGetSecureSslKeySerializer question;
    ResGetSecureSslKeySerializer response("unchanged", "", "");
    EXPECT_FALSE(stream.communicate(question, response));
    answer.join();
    EXPECT_TRUE(log.contains("[error] communicate()@WppLocalSocketClientStream("));
    EXPECT_EQ(log.count("MessageId mismatch."), 1U);
    EXPECT_EQ(response.sslCertificate, "unchanged");
}

TEST_F(WppLocalSocketClientStreamTest, ResponseTooShortForAnIdIsAMismatch) {
    FramedPeer peer = openAndAccept();
    std::thread answer = answerWith(peer, "\1");
    ReqGetSecureSslKeySerializer question;
    ResGetSecureSslKeySerializer response;
    EXPECT_FALSE(stream.communicate(question, response));
    answer.join();
    EXPECT_EQ(log.count("MessageId mismatch."), 1U);
}

TEST_F(WppLocalSocketClientStreamTest, ResponseThatLacksItsFieldsIsStillAResponse) {
    FramedPeer peer = openAndAccept();
    std::thread answer = answerWith(peer, std::string("\xF3\3\0\0", 4));
    ReqGetSecureSslKeySerializer question;
    ResGetSecureSslKeySerializer response("former", "", "");
    EXPECT_TRUE(stream.communicate(question, response));
    answer.join();
    EXPECT_EQ(response.sslCertificate, "");
    EXPECT_EQ(log.count("buffer size over!"), 3U);
}

TEST_F(WppLocalSocketClientStreamTest, PeerThatClosesInsteadOfAnsweringIsAFailure) {
    FramedPeer peer = openAndAccept();
    std::thread leaving([&] {
        peer.receiveFrame();
        peer.close();
    });
    CanStartProjectionSerializer message(7);
    EXPECT_EQ(stream.communicate(message), 0);
    leaving.join();
}

TEST_F(WppLocalSocketClientStreamTest, ConcurrentMessagesEachGetTheirOwnAnswer) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 50;
    FramedPeer peer = openAndAccept();
    std::thread answering([&] {
        for (int i = 0; i < kThreads * kRounds; ++i) {
            // The answer is the message's last byte, the device id.
            peer.sendFrame(peer.receiveFrame().value_or("?").substr(4));
        }
    });
    std::atomic<int> matching{0};
    std::vector<std::thread> callers;
    for (int id = 1; id <= kThreads; ++id) {
        callers.emplace_back([&, id] {
            for (int round = 0; round < kRounds; ++round) {
                CanStartProjectionSerializer message(static_cast<unsigned>(id));
                matching += stream.communicate(message) == id ? 1 : 0;
            }
        });
    }
    for (auto& caller : callers) {
        caller.join();
    }
    answering.join();
    EXPECT_EQ(matching, kThreads * kRounds);
}

TEST_F(WppLocalSocketClientStreamTest, NameThatIsTooLongIsLogged) {
    const std::string name(108, 'n');
    EXPECT_FALSE(stream.open(name.c_str()));
    EXPECT_TRUE(log.contains("[error] open()@WppLocalSocketClientStream("));
    EXPECT_TRUE(log.contains("ClientSocket Open Error. name=" + name));
}

TEST_F(WppLocalSocketClientStreamTest, NullNameIsLogged) {
    EXPECT_FALSE(stream.open(nullptr));
    EXPECT_TRUE(log.contains("ClientSocket Open Error. name=(null)"));
}

TEST_F(WppLocalSocketClientStreamTest, OpeningAgainWaitsForTheNewConnection) {
    FramedPeer first = openAndAccept();
    FramedPeer second;
    std::thread accepting([&] { second = listener->accept(); });
    ASSERT_TRUE(stream.open("S"));
    accepting.join();
    EXPECT_TRUE(first.waitForClose());
    std::thread answer = answerWith(second, "\1");
    CanStartProjectionSerializer message(7);
    EXPECT_EQ(stream.communicate(message), 1);
    answer.join();
}

TEST_F(WppLocalSocketClientStreamTest, CloseEndsTheConnection) {
    FramedPeer peer = openAndAccept();
    stream.close();
    EXPECT_TRUE(peer.waitForClose());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WppLocalSocketClientStreamTest, DestructorEndsTheConnection) {
    listener = std::make_unique<FramedListener>("S");
    auto owned = std::make_unique<WppLocalSocketClientStream>();
    ASSERT_TRUE(owned->open("S"));
    FramedPeer peer = listener->accept();
    owned.reset();
    EXPECT_TRUE(peer.waitForClose());
}

}  // namespace
