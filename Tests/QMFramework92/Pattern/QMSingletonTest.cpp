#include "Pattern/QMSingleton.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

std::vector<std::string>& events() {
    static std::vector<std::string> list;
    return list;
}

class First : public QMSingleton<First> {
    friend class QMSingleton<First>;
    First() { events().emplace_back("+first"); }
    ~First() { events().emplace_back("-first"); }
};

class Second : public QMSingleton<Second> {
    friend class QMSingleton<Second>;
    Second() { events().emplace_back("+second"); }
    ~Second() { events().emplace_back("-second"); }
};

/// Needs another singleton when it is made and when it goes.
class Late : public QMSingleton<Late> {
    friend class QMSingleton<Late>;
    Late() { events().emplace_back("+late"); }
    ~Late() {
        events().emplace_back("-late");
        Second::getInstance();
    }
};

class AsksForItself : public QMSingleton<AsksForItself> {
public:
    static std::atomic<int> made;

private:
    friend class QMSingleton<AsksForItself>;
    AsksForItself() { ++made; }
    ~AsksForItself() { EXPECT_EQ(AsksForItself::getInstance(), this); }
};
std::atomic<int> AsksForItself::made{0};

class Slow : public QMSingleton<Slow> {
public:
    static std::atomic<int> made;
    int value = 0;

private:
    friend class QMSingleton<Slow>;
    Slow() {
        ++made;
        std::this_thread::yield();
        value = 42;
    }
    ~Slow() = default;
};
std::atomic<int> Slow::made{0};

class FailsOnce : public QMSingleton<FailsOnce> {
public:
    static bool failed;

private:
    friend class QMSingleton<FailsOnce>;
    FailsOnce() {
        if (!failed) {
            failed = true;
            throw std::runtime_error("first try");
        }
    }
    ~FailsOnce() = default;
};
bool FailsOnce::failed = false;

static_assert(!std::is_copy_constructible_v<First>);

class QMSingletonTest : public testing::Test {
protected:
    void SetUp() override {
        events().clear();
        AsksForItself::made = 0;
        Slow::made = 0;
        FailsOnce::failed = false;
    }
    void TearDown() override { qm_DestroySingletons(); }
};

TEST_F(QMSingletonTest, InstanceIsMadeOnFirstUseAndKept) {
    EXPECT_TRUE(events().empty());
    First* const instance = First::getInstance();
    EXPECT_EQ(First::getInstance(), instance);
    EXPECT_EQ(events(), (std::vector<std::string>{"+first"}));
}

TEST_F(QMSingletonTest, InstancesAreDestroyedInTheOrderOfTheirCreation) {
    Second::getInstance();
    First::getInstance();
    qm_DestroySingletons();
    EXPECT_EQ(events(), (std::vector<std::string>{"+second", "+first", "-second", "-first"}));
}

TEST_F(QMSingletonTest, SecondDestructionDoesNothing) {
    First::getInstance();
    qm_DestroySingletons();
    qm_DestroySingletons();
    EXPECT_EQ(events(), (std::vector<std::string>{"+first", "-first"}));
}

TEST_F(QMSingletonTest, InstanceIsMadeAfreshAfterDestruction) {
    First::getInstance();
    qm_DestroySingletons();
    First::getInstance();
    qm_DestroySingletons();
    EXPECT_EQ(events(), (std::vector<std::string>{"+first", "-first", "+first", "-first"}));
}

TEST_F(QMSingletonTest, InstanceMadeDuringTheDestructionIsDestroyedToo) {
    Late::getInstance();
    First::getInstance();
    qm_DestroySingletons();
    EXPECT_EQ(events(),
              (std::vector<std::string>{"+late", "+first", "-late", "+second", "-first", "-second"}));
}

TEST_F(QMSingletonTest, DestructorThatAsksForItsInstanceGetsItself) {
    AsksForItself::getInstance();
    qm_DestroySingletons();
    EXPECT_EQ(AsksForItself::made, 1);
}

TEST_F(QMSingletonTest, ThreadsThatComeAtOnceGetTheSameFinishedInstance) {
    constexpr int kRounds = 50;
    constexpr int kThreads = 4;
    for (int round = 0; round < kRounds; ++round) {
        Slow::made = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([] { EXPECT_EQ(Slow::getInstance()->value, 42); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(Slow::made, 1);
        qm_DestroySingletons();
    }
}

TEST_F(QMSingletonTest, FailedConstructionLeavesTheNextUseFree) {
    EXPECT_THROW(FailsOnce::getInstance(), std::runtime_error);
    EXPECT_NE(FailsOnce::getInstance(), nullptr);
}

}  // namespace
