#include "Foundation/QMUnitFrame.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Foundation/QMLMsgBox.h"
#include "Tests/QMFramework92/Foundation/MsgBoxActors.h"
#include "Tests/Support/LogCapture.h"

namespace {

using wpp_test::LogCapture;
using wpp_test::Recorder;

constexpr const char* kRule = "##########################################";  // 42 characters
constexpr const char* kAssertion = "ASSERT Failed! - QMFramework92/Foundation/private/QMUnitFrame(";
constexpr std::uint32_t kUnitId = 21;
constexpr std::int32_t kSid = 5;

/// A box that answers as it is told and keeps what it was asked.
class AnsweringBox : public QMIMsgBox {
public:
    int Initialize() override { return 0; }
    void RequestStop() override {}
    int WaitReady(std::uint32_t) override { return 0; }
    QMIMsgHandler* FindHandler(std::uint32_t) override { return nullptr; }
    bool RemoveHandler(std::uint32_t) override { return false; }
    bool IsOwnUnit(std::uint32_t) override { return false; }
    int PushMsg(const QMMsgRecord& record) override {
        messages.push_back(record);
        return answer;
    }
    int SetEvent(int eventId, unsigned param, bool replace) override {
        events.push_back({eventId, param, replace});
        return answer;
    }
    int Run(std::uint32_t) override { return 0; }

    struct Event {
        int id;
        unsigned param;
        bool replace;
    };

    int answer = 0;
    std::vector<QMMsgRecord> messages;
    std::vector<Event> events;
};

/// The banner as the log shows it, behind the head of its line.
std::string bannerOf(const std::string& text) {
    return std::string(" : \n") + kRule + "\n[QMUnitFrame] " + text + "\n" + kRule + "\n";
}

bool shows(const LogCapture& log, const std::string& text) {
    return log.text().find(bannerOf(text)) != std::string::npos;
}

std::string lowAddress(const void* address) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08x",
                  static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(address) & 0xFFFFFFFFU));
    return text.data();
}

TEST(QMUnitFrame, RuleOfTheBannersIs42CharactersLong) {
    EXPECT_EQ(std::string(kRule), std::string(42, '#'));
}

TEST(QMUnitFrame, MessageGoesToTheBoxWithTheUnitsSid) {
    AnsweringBox box;
    QMUnitFrame unit(kUnitId);
    LogCapture log;
    EXPECT_TRUE(unit.Register(&box, kSid, nullptr));
    EXPECT_EQ(unit.SendMsgSelf(7, 8, "abc", 3), 0);
    ASSERT_EQ(box.messages.size(), 1U);
    EXPECT_EQ(box.messages[0].sid, 5U);
    EXPECT_EQ(box.messages[0].msgId, 7U);
    EXPECT_EQ(box.messages[0].priority, 8U);
    EXPECT_STREQ(static_cast<const char*>(box.messages[0].buffer), "abc");
    EXPECT_EQ(box.messages[0].size, 3U);
    EXPECT_EQ(log.text(), "");
}

TEST(QMUnitFrame, EventGoesToTheBoxAndReplacesNone) {
    AnsweringBox box;
    QMUnitFrame unit(kUnitId);
    LogCapture log;
    EXPECT_TRUE(unit.Register(&box, kSid, nullptr));
    EXPECT_EQ(unit.SendEvtSelf(9, 10), 0);
    ASSERT_EQ(box.events.size(), 1U);
    EXPECT_EQ(box.events[0].id, 9);
    EXPECT_EQ(box.events[0].param, 10U);
    EXPECT_FALSE(box.events[0].replace);
    EXPECT_EQ(log.text(), "");
}

TEST(QMUnitFrame, UnregisteredUnitSendsNoMessageAndReportsIt) {
    QMUnitFrame unit(kUnitId);
    LogCapture log;
    EXPECT_EQ(unit.SendMsgSelf(7, 8, "abc", 3), 6);
    EXPECT_TRUE(shows(log, "SendMsgSelf - en_ERROR_REGIST"));
    EXPECT_EQ(log.count("[error] SendMsgSelf()@QMUnitFrame("), 1U);
    EXPECT_EQ(log.count(kAssertion), 1U);
    EXPECT_GT(log.count("dumpDirectly()@QMCallStack("), 0U);
}

TEST(QMUnitFrame, UnregisteredUnitSendsNoEventAndReportsIt) {
    QMUnitFrame unit(kUnitId);
    LogCapture log;
    EXPECT_EQ(unit.SendEvtSelf(7, 8), 6);
    EXPECT_TRUE(shows(log, "SendEvtSelf - en_ERROR_REGIST"));
    EXPECT_EQ(log.count("[error] SendEvtSelf()@QMUnitFrame("), 1U);
    EXPECT_EQ(log.count(kAssertion), 1U);
    EXPECT_GT(log.count("dumpDirectly()@QMCallStack("), 0U);
}

TEST(QMUnitFrame, MessageWithoutABoxIsReported) {
    QMUnitFrame unit(kUnitId);
    EXPECT_TRUE(unit.Register(nullptr, kSid, nullptr));
    LogCapture log;
    EXPECT_EQ(unit.SendMsgSelf(7, 8, "abc", 3), 4);
    EXPECT_TRUE(shows(log, "SendMsgSelf - en_ERROR_NO_MSGBOX"));
    EXPECT_EQ(log.count("[error] SendMsgSelf()@QMUnitFrame("), 1U);
    EXPECT_EQ(log.count(kAssertion), 1U);
    EXPECT_GT(log.count("dumpDirectly()@QMCallStack("), 0U);
}

TEST(QMUnitFrame, EventWithoutABoxIsReported) {
    QMUnitFrame unit(kUnitId);
    EXPECT_TRUE(unit.Register(nullptr, kSid, nullptr));
    LogCapture log;
    EXPECT_EQ(unit.SendEvtSelf(7, 8), 4);
    EXPECT_TRUE(shows(log, "SendEvtSelf - en_ERROR_NO_MSGBOX"));
    EXPECT_EQ(log.count("[error] SendEvtSelf()@QMUnitFrame("), 1U);
    EXPECT_EQ(log.count(kAssertion), 1U);
    EXPECT_GT(log.count("dumpDirectly()@QMCallStack("), 0U);
}

TEST(QMUnitFrame, EveryRefusalOfAMessageIsCode5AndShowsWhatWasSent) {
    AnsweringBox box;
    Recorder dispatcher;
    QMUnitFrame unit(kUnitId);
    EXPECT_TRUE(unit.Register(&box, kSid, &dispatcher));
    const char bytes[] = "abc";
    for (const int answer : {1, 2, 3}) {
        LogCapture log;
        box.answer = answer;
        EXPECT_EQ(unit.SendMsgSelf(7, 8, bytes, 3), 5);
        const QMIMsgBox* asInterface = &box;
        const QMIMsgHandler* asHandler = &dispatcher;
        EXPECT_TRUE(shows(log, "SendMsgSelf - en_ERROR_PUSH_MSG unit id[21] pIMsgBox_[" +
                                   lowAddress(asInterface) + "] pIDispatcher_[" + lowAddress(asHandler) +
                                   "] SID[5] Priority[8] MsgID[7] Buff[" + lowAddress(bytes) +
                                   "] BuffSize[3]"))
            << log.text();
        EXPECT_EQ(log.count("[error] SendMsgSelf()@QMUnitFrame("), 1U);
        EXPECT_EQ(log.count(kAssertion), 0U);
    }
}

TEST(QMUnitFrame, RefusedMessageShowsNullPointersAsZeroAndLargeNumbersAsNegative) {
    AnsweringBox box;
    box.answer = 3;
    QMUnitFrame unit(0xFFFFFFFFU);
    EXPECT_TRUE(unit.Register(&box, -2, nullptr));
    LogCapture log;
    EXPECT_EQ(unit.SendMsgSelf(0xFFFFFFFDU, 0xFFFFFFFCU, nullptr, 0xFFFFFFFBU), 5);
    const QMIMsgBox* asInterface = &box;
    EXPECT_TRUE(shows(log, "SendMsgSelf - en_ERROR_PUSH_MSG unit id[-1] pIMsgBox_[" +
                               lowAddress(asInterface) +
                               "] pIDispatcher_[0x00000000] SID[-2] Priority[-4] MsgID[-3] "
                               "Buff[0x00000000] BuffSize[-5]"))
        << log.text();
}

TEST(QMUnitFrame, TheBoxesResultOfAnEventIsReportedAndReturned) {
    AnsweringBox box;
    QMUnitFrame unit(kUnitId);
    EXPECT_TRUE(unit.Register(&box, kSid, nullptr));
    for (const int answer : {1, 3}) {
        LogCapture log;
        box.answer = answer;
        EXPECT_EQ(unit.SendEvtSelf(7, 8), answer);
        EXPECT_TRUE(shows(log, "SendEvtSelf - en_ERROR_PUSH_EVT"));
        EXPECT_EQ(log.count("[error] SendEvtSelf()@QMUnitFrame("), 1U);
        EXPECT_EQ(log.count(kAssertion), 0U);
    }
}

TEST(QMUnitFrame, SidMinus1CannotBeRegistered) {
    AnsweringBox box;
    QMUnitFrame unit(kUnitId);
    EXPECT_FALSE(unit.Register(&box, -1, nullptr));
    LogCapture log;
    EXPECT_EQ(unit.SendEvtSelf(7, 8), 6);
    EXPECT_TRUE(box.events.empty());
}

TEST(QMUnitFrame, RegisteredUnitKeepsItsRegistration) {
    AnsweringBox box;
    AnsweringBox other;
    QMUnitFrame unit(kUnitId);
    EXPECT_TRUE(unit.Register(&box, kSid, nullptr));
    EXPECT_FALSE(unit.Register(&other, 6, nullptr));
    EXPECT_EQ(unit.SendMsgSelf(7, 8, nullptr, 0), 0);
    ASSERT_EQ(box.messages.size(), 1U);
    EXPECT_EQ(box.messages[0].sid, 5U);
    EXPECT_TRUE(other.messages.empty());
}

TEST(QMUnitFrame, UnregisteredUnitMayRegisterWithAnotherBox) {
    AnsweringBox box;
    AnsweringBox other;
    QMUnitFrame unit(kUnitId);
    EXPECT_TRUE(unit.Register(&box, kSid, nullptr));
    unit.Unregister();
    unit.Unregister();
    {
        LogCapture log;
        EXPECT_EQ(unit.SendMsgSelf(7, 8, nullptr, 0), 6);
    }
    EXPECT_TRUE(unit.Register(&other, 6, nullptr));
    EXPECT_EQ(unit.SendMsgSelf(7, 8, nullptr, 0), 0);
    EXPECT_TRUE(box.messages.empty());
    ASSERT_EQ(other.messages.size(), 1U);
    EXPECT_EQ(other.messages[0].sid, 6U);
}

TEST(QMUnitFrame, BoxMayGoAfterItsUnitsWereUnregisteredWhileOtherThreadsSend) {
    QMUnitFrame unit(kUnitId);
    LogCapture log;
    std::atomic<bool> over{false};
    std::atomic<int> sent{0};
    std::thread sender([&] {
        while (!over) {
            sent += unit.SendMsgSelf(1, 0, "x", 1) == 0 ? 1 : 0;
            // Refusals write much; the sender need not be quick.
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    for (int round = 0; round < 20; ++round) {
        const auto box = std::make_unique<QMLMsgBox>();
        EXPECT_TRUE(unit.Register(box.get(), kSid, nullptr));
        const int before = sent;
        EXPECT_TRUE(wpp_test::waitUntil([&] { return sent > before; }));
        unit.Unregister();
    }
    over = true;
    sender.join();
}

}  // namespace
