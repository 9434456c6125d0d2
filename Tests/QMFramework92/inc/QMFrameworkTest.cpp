#include "inc/QMFramework.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <string>
#include <vector>

#include "Diagnostics/QMLog.h"
#include "Foundation/QMThread.h"
#include "Foundation/QMThreadMng.h"
#include "Pattern/QMSingleton.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/SyslogCapture.h"

namespace {

using wpp_test::LogCapture;
using wpp_test::SyslogCapture;

class QMFramework : public testing::Test {
protected:
    void TearDown() override { qm_FwTerminate(); }

    static std::string bracesOfALine() {
        LogCapture log;
        qm_Log("a/F", "f", 1, QM_LOG_LEVEL_INFO, "x\n");
        const std::string text = log.text();
        const std::size_t begin = text.find('{');
        return text.substr(begin, text.find('}') - begin + 1);
    }

    SyslogCapture systemLog;
};

TEST_F(QMFramework, InitialisationSucceedsAndNamesTheProcess) {
    EXPECT_NE(qm_FwInitialize("WppReceiver", -1), 0);
    EXPECT_STREQ(qm_GetProcessName(), "WppReceiver");
    EXPECT_EQ(bracesOfALine(), "{WppReceiver}");
}

TEST_F(QMFramework, NameOf63CharactersIsKept) {
    const std::string name(63, 'n');
    LogCapture log;
    EXPECT_NE(qm_FwInitialize(name.c_str(), -1), 0);
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(qm_GetProcessName(), name);
}

TEST_F(QMFramework, NameOf64CharactersIsReportedAndReplaced) {
    LogCapture log;
    EXPECT_NE(qm_FwInitialize(std::string(64, 'n').c_str(), -1), 0);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] qm_FwInitialize()@QMFramework("), 1U);
    EXPECT_EQ(log.count(" : name size is over. max[64]"), 1U);
    EXPECT_EQ(bracesOfALine(), "{Unknown}");
}

TEST_F(QMFramework, MissingNameIsReplaced) {
    EXPECT_NE(qm_FwInitialize(nullptr, -1), 0);
    EXPECT_STREQ(qm_GetProcessName(), "Unknown");
}

TEST_F(QMFramework, SecondInitialisationSucceedsAndKeepsTheFirstName) {
    EXPECT_NE(qm_FwInitialize("First", -1), 0);
    EXPECT_NE(qm_FwInitialize("Second", 0), 0);
    EXPECT_STREQ(qm_GetProcessName(), "First");
    EXPECT_EQ(systemLog.openings().size(), 1U);
}

TEST_F(QMFramework, SystemLogIsOpenedUnderTheName) {
    qm_FwInitialize("WppReceiver", -1);
    ASSERT_EQ(systemLog.openings().size(), 1U);
    EXPECT_EQ(systemLog.openings()[0].identity, "WppReceiver");
    EXPECT_EQ(systemLog.openings()[0].options, LOG_PID | LOG_CONS | LOG_NDELAY);
    EXPECT_EQ(systemLog.openings()[0].facility, LOG_USER);
}

TEST_F(QMFramework, IdentityOfTheSystemLogOutlivesTheCallersText) {
    std::string name = "a name that is too long for a short string";
    qm_FwInitialize(name.c_str(), -1);
    const std::string expected = name;
    name.assign(name.size(), 'x');
    ASSERT_EQ(systemLog.openings().size(), 1U);
    EXPECT_STREQ(systemLog.openings()[0].identityPointer, expected.c_str());
}

TEST_F(QMFramework, TerminationClosesTheSystemLogOnce) {
    qm_FwInitialize("WppReceiver", -1);
    EXPECT_EQ(systemLog.closings(), 0U);
    qm_FwTerminate();
    qm_FwTerminate();
    EXPECT_EQ(systemLog.closings(), 1U);
}

TEST_F(QMFramework, TerminationWithoutInitialisationDoesNothing) {
    LogCapture log;
    QMThreadMng* const before = QMThreadMng::getInstance();
    before->RegisterThread(pthread_self(), "survivor", 251, 0);
    qm_FwTerminate();
    QMThreadRecord record{};
    EXPECT_TRUE(QMThreadMng::getInstance()->FindThread(pthread_self(), record));
    EXPECT_EQ(systemLog.closings(), 0U);
    EXPECT_EQ(log.text(), "");
    qm_DestroySingletons();
}

TEST_F(QMFramework, InitialisationWorksAgainAfterTermination) {
    qm_FwInitialize("First", -1);
    qm_FwTerminate();
    EXPECT_NE(qm_FwInitialize("Second", -1), 0);
    EXPECT_STREQ(qm_GetProcessName(), "Second");
    ASSERT_EQ(systemLog.openings().size(), 2U);
    EXPECT_EQ(systemLog.openings()[1].identity, "Second");
}

class Resident : public QMSingleton<Resident> {
public:
    static int alive;

private:
    friend class QMSingleton<Resident>;
    Resident() { ++alive; }
    ~Resident() { --alive; }
};
int Resident::alive = 0;

TEST_F(QMFramework, TerminationDestroysTheSingletons) {
    qm_FwInitialize("WppReceiver", -1);
    Resident::getInstance();
    EXPECT_EQ(Resident::alive, 1);
    qm_FwTerminate();
    EXPECT_EQ(Resident::alive, 0);
}

TEST_F(QMFramework, LoggingWorksAfterTermination) {
    qm_FwInitialize("WppReceiver", -1);
    qm_FwTerminate();
    LogCapture log;
    qm_Log("a/F", "f", 1, QM_LOG_LEVEL_ERROR, "late\n");
    EXPECT_TRUE(log.contains(" : late"));
    EXPECT_TRUE(systemLog.contains(LOG_ERR, " : late\n"));
}

struct LoggingOwner {
    void MainProc() { QM_LOG_INFO("from a thread\n"); }
};

TEST_F(QMFramework, ThreadsShowTheProcessName) {
    qm_FwInitialize("WppReceiver", -1);
    LogCapture log;
    LoggingOwner owner;
    QMThread<LoggingOwner> thread(&owner);
    ASSERT_TRUE(thread.Start("logger"));
    ASSERT_TRUE(thread.WaitExit(10000));
    EXPECT_EQ(log.count("{WppReceiver} : from a thread"), 1U);
}

}  // namespace
