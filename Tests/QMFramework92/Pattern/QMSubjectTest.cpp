#include "Pattern/QMSubject.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Foundation/QMEvent.h"
#include "Tests/Support/LogCapture.h"

namespace {

using wpp_test::LogCapture;

/// Notes each update under its letter in a list that observers share.
class Observer final : public QMObserver_ {
public:
    Observer(char ownLetter, std::string& sharedCalls, unsigned updateResult = 0)
        : letter(ownLetter), calls(sharedCalls), result(updateResult) {}

    unsigned update(unsigned eventId, const void* data, int size) override {
        calls += letter;
        lastEventId = eventId;
        lastData = data;
        lastSize = size;
        return result;
    }

    unsigned lastEventId = 0;
    const void* lastData = nullptr;
    int lastSize = 0;

private:
    const char letter;
    std::string& calls;
    const unsigned result;
};

/// A subject whose observers leave before it goes.
class QMSubjectTest : public testing::Test {
protected:
    void TearDown() override {
        for (QMObserver_* observer : {static_cast<QMObserver_*>(&a), static_cast<QMObserver_*>(&b)}) {
            while (subject.RemoveObserver(observer)) {
            }
        }
    }

    QMSubject subject;
    std::string calls;
    Observer a{'a', calls, 5};
    Observer b{'b', calls, 0xFFFFFFFFU};
};

constexpr unsigned kMode0 = 0;
constexpr unsigned kMode1 = 1;

TEST_F(QMSubjectTest, Mode1ReachesOnlyObserversWhoseListContainsTheEvent) {
    const unsigned seven[] = {6, 7};
    const unsigned eight[] = {8};
    EXPECT_TRUE(subject.AddObserver(&a, seven, 2));
    EXPECT_TRUE(subject.AddObserver(&b, eight, 1));
    subject.NotifyObservers(7, nullptr, 0, kMode1);
    EXPECT_EQ(calls, "a");
}

TEST_F(QMSubjectTest, Mode1CallsOncePerOccurrence) {
    const unsigned ids[] = {7, 1, 7};
    subject.AddObserver(&a, ids, 3);
    subject.NotifyObservers(7, nullptr, 0, kMode1);
    EXPECT_EQ(calls, "aa");
}

TEST_F(QMSubjectTest, Mode1SkipsObserversOfEverything) {
    subject.AddObserver(&a);
    EXPECT_EQ(subject.NotifyObservers(7, nullptr, 0, kMode1), 0U);
    EXPECT_EQ(calls, "");
}

TEST_F(QMSubjectTest, OtherModesReachEveryObserverOnceWhateverItsIds) {
    const unsigned ids[] = {7, 7};
    subject.AddObserver(&a, ids, 2);
    subject.AddObserver(&b);
    subject.NotifyObservers(7, nullptr, 0, kMode0);
    EXPECT_EQ(calls, "ab");
    subject.NotifyObservers(9, nullptr, 0, 2);
    EXPECT_EQ(calls, "abab");
}

TEST_F(QMSubjectTest, ObserversAreCalledInTheOrderOfTheirRegistration) {
    subject.AddObserver(&b);
    subject.AddObserver(&a);
    subject.AddObserver(&b);
    subject.NotifyObservers(1, nullptr, 0, kMode0);
    EXPECT_EQ(calls, "bab");
}

TEST_F(QMSubjectTest, UpdateGetsEventDataAndSize) {
    const char data[] = "data";
    subject.AddObserver(&a);
    subject.NotifyObservers(17, data, 5, kMode0);
    EXPECT_EQ(a.lastEventId, 17U);
    EXPECT_EQ(a.lastData, data);
    EXPECT_EQ(a.lastSize, 5);
}

TEST_F(QMSubjectTest, NotifyReturnsTheLargestUnsignedResult) {
    subject.AddObserver(&b);
    subject.AddObserver(&a);
    EXPECT_EQ(subject.NotifyObservers(1, nullptr, 0, kMode0), 0xFFFFFFFFU);
    subject.RemoveObserver(&b);
    EXPECT_EQ(subject.NotifyObservers(1, nullptr, 0, kMode0), 5U);
}

TEST_F(QMSubjectTest, NotifyWithoutObserversReturnsZero) {
    EXPECT_EQ(subject.NotifyObservers(1, nullptr, 0, kMode0), 0U);
    EXPECT_EQ(subject.NotifyObservers(1, nullptr, 0, kMode1), 0U);
}

TEST_F(QMSubjectTest, EventIdsAreCopied) {
    unsigned ids[] = {7};
    subject.AddObserver(&a, ids, 1);
    ids[0] = 8;
    subject.NotifyObservers(7, nullptr, 0, kMode1);
    EXPECT_EQ(calls, "a");
}

TEST_F(QMSubjectTest, NullIdListCountsAsEmpty) {
    EXPECT_TRUE(subject.AddObserver(&a, nullptr, 3));
    subject.NotifyObservers(7, nullptr, 0, kMode1);
    EXPECT_EQ(calls, "");
}

TEST_F(QMSubjectTest, RemovingAnObserverThatWasAddedTwiceRemovesItsFirstEntry) {
    const unsigned first[] = {1};
    const unsigned second[] = {2};
    subject.AddObserver(&a, first, 1);
    subject.AddObserver(&a, second, 1);
    EXPECT_TRUE(subject.RemoveObserver(&a));
    subject.NotifyObservers(1, nullptr, 0, kMode1);
    EXPECT_EQ(calls, "");
    subject.NotifyObservers(2, nullptr, 0, kMode1);
    EXPECT_EQ(calls, "a");
}

TEST_F(QMSubjectTest, RemovingAnUnknownObserverReturnsFalse) {
    subject.AddObserver(&a);
    EXPECT_FALSE(subject.RemoveObserver(&b));
    EXPECT_TRUE(subject.RemoveObserver(&a));
    EXPECT_FALSE(subject.RemoveObserver(&a));
}

TEST_F(QMSubjectTest, RemovingANullObserverReturnsFalseSilently) {
    LogCapture log;
    EXPECT_FALSE(subject.RemoveObserver(nullptr));
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMSubjectTest, AddingANullObserverReturnsFalseAndRaisesAnAssertion) {
    LogCapture log;
    EXPECT_FALSE(subject.AddObserver(nullptr));
    EXPECT_EQ(log.count("ASSERT Failed! - QMFramework92/Pattern/private/QMSubject("), 1U);
    EXPECT_GT(log.count("dumpDirectly()@QMCallStack("), 0U);
    const unsigned ids[] = {1};
    EXPECT_FALSE(subject.AddObserver(nullptr, ids, 1));
    EXPECT_EQ(log.count("ASSERT Failed! - QMFramework92/Pattern/private/QMSubject("), 2U);
}

TEST(QMSubject, DestructionWithTwoObserversAttachedIsReportedWithAStackDump) {
    std::string calls;
    Observer observer('a', calls);
    LogCapture log;
    {
        QMSubject subject;
        subject.AddObserver(&observer);
        subject.AddObserver(&observer);
    }
    const std::vector<std::string> lines = log.lines();
    ASSERT_GT(lines.size(), 1U);
    EXPECT_EQ(lines[0].rfind("[error] ~QMSubject()@QMSubject(", 0), 0U);
    EXPECT_EQ(lines[0].substr(lines[0].find(" : ")), " : call RemoveObserver() before delete. [2]");
    EXPECT_LE(lines.size(), 11U);
    EXPECT_EQ(log.count("dumpDirectly()@QMCallStack("), lines.size() - 1);
}

TEST(QMSubject, DestructionWithoutObserversIsSilent) {
    std::string calls;
    Observer observer('a', calls);
    LogCapture log;
    {
        QMSubject subject;
        subject.AddObserver(&observer);
        subject.RemoveObserver(&observer);
    }
    EXPECT_EQ(log.text(), "");
}

class Target {
public:
    unsigned onNotification(unsigned eventId, const void* data, int size) {
        return eventId + static_cast<unsigned>(size) + *static_cast<const unsigned char*>(data);
    }
};

TEST(QMObserver, UpdateCallsTheMemberFunctionAndReturnsItsResult) {
    Target target;
    QMObserver<Target> observer(&target, &Target::onNotification);
    const unsigned char data = 100;
    QMObserver_& abstract = observer;
    EXPECT_EQ(abstract.update(1, &data, 10), 111U);
}

/// Stays in update until it is told to leave.
class BlockingObserver final : public QMObserver_ {
public:
    unsigned update(unsigned, const void*, int) override {
        entered.SetEvent();
        QMEvent::WaitEvent(&leave, QM_WAIT_INFINITE);
        left = true;
        return 0;
    }
    QMEvent entered;
    QMEvent leave;
    std::atomic<bool> left{false};
};

TEST(QMSubject, RemovalWaitsForARunningNotification) {
    QMSubject subject;
    BlockingObserver observer;
    subject.AddObserver(&observer);
    std::thread notifier([&subject] { subject.NotifyObservers(1, nullptr, 0, kMode0); });
    ASSERT_EQ(QMEvent::WaitEvent(&observer.entered, 10000), 0);
    bool leftBeforeRemoval = false;
    std::thread remover([&] {
        EXPECT_TRUE(subject.RemoveObserver(&observer));
        leftBeforeRemoval = observer.left;
    });
    observer.leave.SetEvent();
    notifier.join();
    remover.join();
    EXPECT_TRUE(leftBeforeRemoval);
}

TEST(QMSubject, ThreadsMayAddRemoveAndNotifyAtOnce) {
    constexpr int kRounds = 500;
    QMSubject subject;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&subject] {
            std::string calls;
            Observer observer('x', calls);
            for (int round = 0; round < kRounds; ++round) {
                EXPECT_TRUE(subject.AddObserver(&observer));
                EXPECT_TRUE(subject.RemoveObserver(&observer));
            }
        });
    }
    threads.emplace_back([&subject] {
        for (int round = 0; round < kRounds; ++round) {
            subject.NotifyObservers(1, nullptr, 0, kMode0);
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(subject.NotifyObservers(1, nullptr, 0, kMode0), 0U);
}

}  // namespace
