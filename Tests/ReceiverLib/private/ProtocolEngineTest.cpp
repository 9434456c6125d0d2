#include "private/ProtocolEngine.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "Tests/ReceiverLib/Support/EngineFixture.h"
#include "Tests/ReceiverLib/Support/Loopback.h"

namespace wpp_test {
namespace {

using std::chrono::milliseconds;
using wifi_projection_protocol::Limits;

using ProtocolEngine = EngineFixture;

// Lets one thread wait for another.
class Gate {
public:
    void open() { promise.set_value(); }
    bool wait() const { return future.wait_for(kPatience) == std::future_status::ready; }

private:
    std::promise<void> promise;
    std::shared_future<void> future = promise.get_future().share();
};

TEST_F(ProtocolEngine, OnePhoneWalksTheWholeRoad) {
    Peer rfcomm = introduceOnRfcomm("phone", "RFCOMM_1");
    rfcomm.phone.sayVersionAccepted();
    rfcomm.phone.sayStatus(0, "joined");
    ASSERT_TRUE(unit->waitFor(Event::kStatus));
    Peer tcp = connect("TCP_1", TransportType::kTcp);
    ASSERT_TRUE(tcp.phone.introduce("phone"));
    tcp.phone.askMayIStart();
    ASSERT_EQ(tcp.phone.hearAnswer(), 0);
    tcp.phone.sayReady();
    ASSERT_TRUE(unit->waitFor(Event::kReady));
    auto result = start("phone", 3);
    ASSERT_EQ(tcp.phone.hearStart(), 3U);
    tcp.phone.sayStartResult(1);
    ASSERT_TRUE(isReady(result));
    EXPECT_EQ(result.get(), 1U);
    tcp.link->close();
    ASSERT_TRUE(unit->waitFor(Event::kLost));

    EXPECT_EQ(unit->count(Event::kStatus), 1U);
    EXPECT_EQ(unit->count(Event::kQuestion), 1U);
    const auto names = unit->events(Event::kLost)[0].client.transports;
    EXPECT_EQ(names.at(TransportType::kRfcomm), "RFCOMM_1");
    EXPECT_EQ(names.at(TransportType::kTcp), "TCP_1");
}

TEST_F(ProtocolEngine, SamePhoneCanWalkTheRoadAgainAfterALoss) {
    introduceOnTcp("phone", "TCP_1").link->close();
    ASSERT_TRUE(unit->waitFor(Event::kLost));
    Peer again = introduceOnTcp("phone", "TCP_1");
    auto result = start("phone");
    ASSERT_TRUE(again.phone.hearStart());
    again.phone.sayStartResult(4);
    ASSERT_TRUE(isReady(result));
    EXPECT_EQ(result.get(), 4U);
    again.link->close();
    EXPECT_TRUE(unit->waitFor(Event::kLost, 2));
}

TEST_F(ProtocolEngine, StartForAnUnknownPhoneIsZeroAtOnce) {
    auto result = start("nobody");
    ASSERT_EQ(result.wait_for(milliseconds(0)), std::future_status::ready);
    EXPECT_EQ(result.get(), 0U);
}

TEST_F(ProtocolEngine, StartForAnEmptyClientIdIsZero) {
    EXPECT_EQ(start("").get(), 0U);
}

TEST_F(ProtocolEngine, StartForAPhoneWithoutTcpIsZero) {
    introduceOnRfcomm("phone", "RFCOMM_1");
    EXPECT_EQ(start("phone").get(), 0U);
}

TEST_F(ProtocolEngine, StartIsZeroWhenThePhoneIsLost) {
    Peer peer = introduceOnTcp("phone", "TCP_1");
    auto result = start("phone");
    peer.link->close();
    ASSERT_TRUE(isReady(result));
    EXPECT_EQ(result.get(), 0U);
}

TEST_F(ProtocolEngine, StartIsZeroWhenThePhoneIsDisconnected) {
    introduceOnTcp("phone", "TCP_1");
    auto result = start("phone");
    engine->clientDisconnected("TCP_1");
    ASSERT_TRUE(isReady(result));
    EXPECT_EQ(result.get(), 0U);
}

TEST_F(ProtocolEngine, StartIsZeroWhenTheEngineEnds) {
    introduceOnTcp("phone", "TCP_1");
    auto result = start("phone");
    engine.reset();
    ASSERT_TRUE(isReady(result));
    EXPECT_EQ(result.get(), 0U);
}

TEST_F(ProtocolEngine, DisconnectedPhoneIsReportedLostOnce) {
    Peer peer = introduceOnTcp("phone", "TCP_1");
    engine->clientDisconnected("TCP_1");
    ASSERT_TRUE(unit->waitFor(Event::kLost));
    engine->clientDisconnected("TCP_1");
    engine.reset();
    EXPECT_EQ(unit->count(Event::kLost), 1U);
    EXPECT_EQ(peer.link->releaseCount(), 1);
    EXPECT_EQ(peer.link->closeCount(), 1);
}

TEST_F(ProtocolEngine, PhoneOnRfcommAloneIsLostWithIt) {
    introduceOnRfcomm("phone", "RFCOMM_1");
    engine->clientDisconnected("RFCOMM_1");
    ASSERT_TRUE(unit->waitFor(Event::kLost));
    EXPECT_EQ(unit->events(Event::kLost)[0].client.transports.at(TransportType::kRfcomm), "RFCOMM_1");
}

TEST_F(ProtocolEngine, LostRfcommIsNoLossWhileTcpLives) {
    Peer rfcomm = introduceOnRfcomm("phone", "RFCOMM_1");
    Peer tcp = introduceOnTcp("phone", "TCP_1");
    engine->clientDisconnected("RFCOMM_1");
    ASSERT_TRUE(rfcomm.link->waitForRelease());
    tcp.phone.sayReady();
    ASSERT_TRUE(unit->waitFor(Event::kReady));
    EXPECT_EQ(unit->events(Event::kReady)[0].client.transports.count(TransportType::kRfcomm), 0U);
    EXPECT_EQ(unit->count(Event::kLost), 0U);
}

TEST_F(ProtocolEngine, PhoneThatLostTcpIsNotLostAgainWithRfcomm) {
    Peer rfcomm = introduceOnRfcomm("phone", "RFCOMM_1");
    introduceOnTcp("phone", "TCP_1").link->close();
    ASSERT_TRUE(unit->waitFor(Event::kLost));
    engine->clientDisconnected("RFCOMM_1");
    ASSERT_TRUE(rfcomm.link->waitForRelease());
    engine.reset();
    EXPECT_EQ(unit->count(Event::kLost), 1U);
}

TEST_F(ProtocolEngine, UnknownNameIsDisconnectedWithoutEffect) {
    Peer peer = introduceOnRfcomm("phone", "RFCOMM_1");
    engine->clientDisconnected("RFCOMM_2");
    peer.phone.sayStatus(1, "");
    EXPECT_TRUE(unit->waitFor(Event::kStatus));
}

TEST_F(ProtocolEngine, TransportIsClosedBeforeDisconnectReturns) {
    Peer peer = introduceOnRfcomm("phone", "RFCOMM_1");
    engine->clientDisconnected("RFCOMM_1");
    EXPECT_EQ(peer.link->closeCount(), 1);
    EXPECT_TRUE(peer.link->waitForRelease());
}

TEST_F(ProtocolEngine, NameInUseIsReplaced) {
    Peer first = introduceOnTcp("first", "TCP_1");
    Peer second = introduceOnTcp("second", "TCP_1");
    EXPECT_TRUE(first.link->waitForRelease());
    ASSERT_TRUE(unit->waitFor(Event::kLost));
    EXPECT_EQ(unit->events(Event::kLost)[0].client.clientId, "first");
    EXPECT_EQ(second.link->closeCount(), 0);
}

TEST_F(ProtocolEngine, SamePhoneUnderItsOldNameIsLostFirstAndThenReady) {
    std::atomic<bool> lost{false};
    std::atomic<bool> readyAfterLoss{false};
    unit->setReaction([&](const Event& event) {
        if (event.kind == Event::kLost) {
            std::this_thread::sleep_for(milliseconds(50));  // gives the new transport a chance to overtake
            lost = true;
        } else if (event.kind == Event::kReady) {
            readyAfterLoss = lost.load();
        }
    });
    introduceOnTcp("phone", "TCP_1");
    Peer again = introduceOnTcp("phone", "TCP_1");
    again.phone.sayReady();
    ASSERT_TRUE(unit->waitFor(Event::kReady));
    engine.reset();
    EXPECT_TRUE(readyAfterLoss);
    EXPECT_EQ(unit->count(Event::kLost), 1U);
}

TEST_F(ProtocolEngine, NewTransportOfTheSameKindTakesOverWithoutALoss) {
    Peer old = introduceOnTcp("phone", "TCP_1");
    auto pending = start("phone");
    Peer fresh = introduceOnTcp("phone", "TCP_2");
    EXPECT_TRUE(old.link->waitForRelease());
    ASSERT_TRUE(isReady(pending));
    EXPECT_EQ(pending.get(), 0U);
    fresh.phone.sayReady();
    ASSERT_TRUE(unit->waitFor(Event::kReady));
    EXPECT_EQ(unit->events(Event::kReady)[0].client.transports.at(TransportType::kTcp), "TCP_2");
    EXPECT_EQ(unit->count(Event::kLost), 0U);
}

TEST_F(ProtocolEngine, PhoneMayBeDisconnectedWithinItsOwnCallback) {
    Peer peer = introduceOnTcp("phone", "TCP_1");
    unit->setReaction([this](const Event& event) {
        if (event.kind == Event::kReady) {
            engine->clientDisconnected("TCP_1");
        }
    });
    peer.phone.sayReady();
    ASSERT_TRUE(unit->waitFor(Event::kLost));
    EXPECT_TRUE(peer.link->waitForRelease());
    EXPECT_EQ(peer.link->releaseCount(), 1);
}

TEST_F(ProtocolEngine, PhoneMayBeReplacedWithinItsOwnCallback) {
    Peer peer = introduceOnTcp("phone", "TCP_1");
    const auto link = MemoryLink::make();
    unit->setReaction([&](const Event& event) {
        if (event.kind == Event::kReady) {
            engine->clientConnected("TCP_1", TransportType::kTcp, link->makeTransport());
        }
    });
    peer.phone.sayReady();
    ASSERT_TRUE(peer.link->waitForRelease());
    TestPhone phone(link);
    EXPECT_TRUE(phone.introduce("phone"));
}

TEST_F(ProtocolEngine, ProjectionMayBeStartedWithinACallback) {
    Peer peer = introduceOnTcp("phone", "TCP_1");
    std::future<std::uint32_t> result;
    Gate begun;
    unit->setReaction([&](const Event& event) {
        if (event.kind == Event::kReady) {
            result = start("phone");
            begun.open();
        }
    });
    peer.phone.sayReady();
    ASSERT_TRUE(begun.wait());
    ASSERT_TRUE(peer.phone.hearStart());
    peer.phone.sayStartResult(9);
    ASSERT_TRUE(isReady(result));
    EXPECT_EQ(result.get(), 9U);
}

TEST_F(ProtocolEngine, OneQuestionIsAskedAtATime) {
    std::atomic<int> asking{0};
    std::atomic<bool> overlapped{false};
    unit->setReaction([&](const Event& event) {
        if (event.kind == Event::kQuestion) {
            overlapped = overlapped || ++asking > 1;
            std::this_thread::sleep_for(milliseconds(5));  // room for a second question to overlap
            --asking;
        }
    });
    std::vector<Peer> peers;
    for (int i = 0; i < 8; ++i) {
        peers.push_back(introduceOnTcp("phone " + std::to_string(i), "TCP_" + std::to_string(i)));
    }
    for (Peer& peer : peers) {
        peer.phone.askMayIStart();
    }
    for (Peer& peer : peers) {
        EXPECT_TRUE(peer.phone.hearAnswer());
    }
    EXPECT_FALSE(overlapped);
}

TEST_F(ProtocolEngine, PhoneThatIsDroppedWhileItsQuestionWaitsIsNotAskedAbout) {
    Gate answered;
    unit->setReaction([&](const Event& event) {
        if (event.kind == Event::kQuestion) {
            answered.wait();
        }
    });
    Peer first = introduceOnTcp("first", "TCP_1");
    Peer second = introduceOnTcp("second", "TCP_2");
    first.phone.askMayIStart();
    ASSERT_TRUE(unit->waitFor(Event::kQuestion));
    second.phone.sayStatus(1, "about to ask");
    second.phone.askMayIStart();
    ASSERT_TRUE(unit->waitFor(Event::kStatus));
    std::this_thread::sleep_for(
        milliseconds(20));  // lets it join the queue; leaving a moment early is as good
    const auto begin = std::chrono::steady_clock::now();
    engine->clientDisconnected("TCP_2");
    EXPECT_TRUE(second.link->waitForRelease());
    EXPECT_LT(std::chrono::steady_clock::now() - begin,
              kPatience / 2);  // and not with the first one's answer
    answered.open();
    EXPECT_TRUE(first.phone.hearAnswer());
    EXPECT_EQ(unit->count(Event::kQuestion), 1U);
}

TEST_F(ProtocolEngine, EndWaitsForAQuestionUnderWayAndSkipsTheOthers) {
    Gate asked;
    std::atomic<bool> finished{false};
    unit->setReaction([&](const Event& event) {
        if (event.kind == Event::kQuestion) {
            asked.open();
            std::this_thread::sleep_for(milliseconds(100));  // the engine ends meanwhile
            finished = true;
        }
    });
    std::vector<Peer> peers;
    for (int i = 0; i < 5; ++i) {
        peers.push_back(introduceOnTcp("phone " + std::to_string(i), "TCP_" + std::to_string(i)));
        peers.back().phone.askMayIStart();
    }
    ASSERT_TRUE(asked.wait());
    engine.reset();
    EXPECT_TRUE(finished);
    EXPECT_EQ(unit->count(Event::kQuestion), 1U);
    EXPECT_EQ(unit->count(Event::kLost), 0U);
}

TEST_F(ProtocolEngine, CallbacksMayUseTheEngineWhileItEnds) {
    Gate inside;
    Gate ending;
    const auto late = MemoryLink::make();
    std::atomic<std::uint32_t> result{1};
    unit->setReaction([&](const Event& event) {
        if (event.kind == Event::kReady) {
            inside.open();
            ending.wait();
            engine->clientDisconnected("TCP_1");
            engine->clientConnected("TCP_2", TransportType::kTcp, late->makeTransport());
            result = start("phone").get();
        }
    });
    Peer peer = introduceOnTcp("phone", "TCP_1");
    peer.phone.sayReady();
    ASSERT_TRUE(inside.wait());
    std::thread opener([&] {
        peer.link->waitForClose();
        ending.open();
    });
    engine->stop();
    opener.join();
    EXPECT_EQ(result, 0U);
    EXPECT_EQ(late->releaseCount(), 1);
}

TEST_F(ProtocolEngine, EndReleasesEveryTransportAndThenTheCallbacks) {
    std::vector<Peer> peers;
    for (int i = 0; i < 50; ++i) {
        const std::string number = std::to_string(i);
        peers.push_back(i % 2 == 0 ? introduceOnTcp("phone " + number, "TCP_" + number)
                                   : connect("RFCOMM_" + number, TransportType::kRfcomm));
    }
    engine.reset();
    for (const Peer& peer : peers) {
        EXPECT_EQ(peer.link->closeCount(), 1);
        EXPECT_EQ(peer.link->releaseCount(), 1);
    }
    EXPECT_EQ(unit->releaseCount(), 3);
    EXPECT_EQ(unit->count(Event::kLost), 0U);
}

TEST_F(ProtocolEngine, EndInTheMiddleOfAMessageWaitsForNoPhone) {
    Peer peer = introduceOnTcp("phone", "TCP_1");
    peer.phone.sayBytes(std::string("\0\0", 2));
    engine.reset();
    EXPECT_EQ(peer.link->releaseCount(), 1);
}

TEST_F(ProtocolEngine, TransportBeyondTheLimitIsClosedAndReleasedAtOnce) {
    Limits limits;
    limits.transports = 2;
    makeEngine(limits);
    Peer first = introduceOnTcp("first", "TCP_1");
    Peer second = introduceOnTcp("second", "TCP_2");
    Peer third = connect("TCP_3", TransportType::kTcp);
    EXPECT_EQ(third.link->closeCount(), 1);
    EXPECT_EQ(third.link->releaseCount(), 1);
    EXPECT_NE(unit->log().find("TCP_3: there is no room for another transport"), std::string::npos);
    engine->clientDisconnected("TCP_1");
    Peer fourth = connect("TCP_4", TransportType::kTcp);
    EXPECT_EQ(fourth.link->closeCount(), 0);
}

TEST_F(ProtocolEngine, StrangerThatHasWaitedLongestMakesRoomForAnother) {
    Limits limits;
    limits.strangers = 2;
    makeEngine(limits);
    Peer known = introduceOnTcp("known", "TCP_0");
    Peer overRfcomm = connect("RFCOMM_1", TransportType::kRfcomm);
    Peer first = connect("TCP_1", TransportType::kTcp);
    Peer second = connect("TCP_2", TransportType::kTcp);
    EXPECT_EQ(first.link->closeCount(), 0);
    Peer third = connect("TCP_3", TransportType::kTcp);
    EXPECT_EQ(first.link->closeCount(), 1);
    for (const Peer* peer : {&known, &overRfcomm, &second, &third}) {
        EXPECT_EQ(peer->link->closeCount(), 0);
    }
    unit->addKnown("phone");
    EXPECT_TRUE(second.phone.introduce("phone"));
}

TEST_F(ProtocolEngine, PhoneGetsThroughACrowdOfStrangers) {
    Limits limits;
    limits.strangers = 2;
    limits.transports = 4;
    makeEngine(limits);
    std::vector<Peer> crowd;
    for (int i = 0; i < 200; ++i) {
        crowd.push_back(connect("TCP_" + std::to_string(i), TransportType::kTcp));
    }
    introduceOnTcp("phone", "TCP_phone");
    EXPECT_EQ(unit->log().find("no room"), std::string::npos);
}

TEST_F(ProtocolEngine, EmptyTransportIsIgnored) {
    engine->clientConnected("TCP_1", TransportType::kTcp, nullptr);
    EXPECT_EQ(start("phone").get(), 0U);
}

TEST_F(ProtocolEngine, WorksWithoutALog) {
    engine = std::make_unique<wifi_projection_protocol::ProtocolEngine>(
        wifi_projection_protocol::Callbacks{unit->makeCallback(), unit->makeInfoProvider(), nullptr},
        wifi_projection_protocol::FixedSettings{});
    Peer peer = connect("RFCOMM_1", TransportType::kRfcomm);
    EXPECT_TRUE(peer.phone.introduce("phone"));
}

TEST_F(ProtocolEngine, ThreadsOfGonePhonesAreGone) {
    const std::size_t before = countThreads();
    for (int i = 0; i < 200; ++i) {
        introduceOnRfcomm("phone", "RFCOMM_1").link->close();
    }
    ASSERT_TRUE(unit->waitFor(Event::kLost));
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (countThreads() > before && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_EQ(countThreads(), before);
}

TEST_F(ProtocolEngine, ManyPhonesComeAndGoFromManyThreads) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this, thread] {
            for (int i = 0; i < 25; ++i) {
                const std::string name = "RFCOMM_" + std::to_string((thread + i) % 3);
                Peer peer = connect(name, TransportType::kRfcomm);
                peer.phone.sayHello("phone " + std::to_string(i % 2));
                start("phone 0");
                engine->clientDisconnected(name);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    Peer peer = connect("RFCOMM_9", TransportType::kRfcomm);
    EXPECT_TRUE(peer.phone.introduce("phone 0"));
}

}  // namespace
}  // namespace wpp_test
