// The memory report that qm_FwTerminate writes, in a root of the test's own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "Tests/Support/LogCapture.h"
#include "Tests/Support/PrivateRoot.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "inc/QMFramework.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

class QMMemoryReport : public testing::Test {
protected:
    void makeSyslog() { fs::create_directory(root.path() / "Syslog"); }

    /// One life of the framework in a process of its own; `whileUp` runs between its ends.
    void runFramework(const char* processName, const std::function<void()>& whileUp) {
        ASSERT_EQ(0, wpp_test::runInPrivateRoot(root.path(), [&] {
                      const bool initialised = qm_FwInitialize(processName, -1) != 0;
                      whileUp();
                      qm_FwTerminate();
                      return initialised ? 0 : 1;
                  }));
    }

    std::vector<std::string> reports() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(root.path() / "Syslog")) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    std::string textOf(const std::string& name) const {
        std::ifstream in(root.path() / "Syslog" / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    wpp_test::TemporaryDirectory root;
    wpp_test::LogCapture log;
};

void accountForMemory() {
    qm_SetMemoryAccounting(1);
}

}  // namespace

TEST_F(QMMemoryReport, IsWrittenWithEveryTextWhenAccountingIsOn) {
    makeSyslog();
    runFramework("WppReceiver", accountForMemory);
    ASSERT_THAT(reports(), ElementsAre(MatchesRegex("HeapList_WppReceiver[0-9]{6}_[0-9]{4}\\.txt")));
    EXPECT_EQ(
        "[Memory Info Summary]\n"
        "Current Total Count = 0, Max Total Count = 0, Current Total Size = 0, Max Total Size = 0\n"
        "\n[Memory Info about Each Thread]\n"
        "   TID   : Current Count : Max Count : Current Size : Max Size\n"
        "\n[Memory Leak Info]\n"
        "#\tTID\t\tAddress\t\tSize\tOverrun"
        "\tMethod(0)\tMethod(1)\tMethod(2)\tMethod(3)\tMethod(4)"
        "\tMethod(5)\tMethod(6)\tMethod(7)\tMethod(8)\tMethod(9)\n",
        textOf(reports().front()));
    EXPECT_EQ("", log.text());
}

TEST_F(QMMemoryReport, IsNotWrittenWhenNothingSwitchedAccountingOn) {
    makeSyslog();
    runFramework("WppReceiver", [] {});
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(QMMemoryReport, IsNotWrittenWhenAccountingWasSwitchedOffAgain) {
    makeSyslog();
    runFramework("WppReceiver", [] {
        qm_SetMemoryAccounting(1);
        qm_SetMemoryAccounting(0);
    });
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(QMMemoryReport, InitialisationSwitchesAccountingOff) {
    makeSyslog();
    qm_SetMemoryAccounting(1);
    runFramework("WppReceiver", [] {});
    qm_SetMemoryAccounting(0);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(QMMemoryReport, ASecondInitialisationLeavesAccountingOn) {
    makeSyslog();
    runFramework("WppReceiver", [] {
        qm_SetMemoryAccounting(1);
        qm_FwInitialize("Another", -1);
    });
    EXPECT_THAT(reports(), ElementsAre(MatchesRegex("HeapList_WppReceiver[0-9_]*\\.txt")));
}

TEST_F(QMMemoryReport, TheNameOfItsFileIsCutTo24CharactersInFrontOfTheDate) {
    makeSyslog();
    runFramework("ProcessWithALongName", accountForMemory);
    EXPECT_THAT(reports(), ElementsAre(MatchesRegex("HeapList_ProcessWithALon[0-9]{6}_[0-9]{4}\\.txt")));
}

TEST_F(QMMemoryReport, ANameOf15CharactersIsKeptWhole) {
    makeSyslog();
    runFramework("FifteenLetters_", accountForMemory);
    EXPECT_THAT(reports(), ElementsAre(MatchesRegex("HeapList_FifteenLetters_[0-9]{6}_[0-9]{4}\\.txt")));
}

TEST_F(QMMemoryReport, BytesBeyondAsciiInTheNameBecomeUnderscores) {
    makeSyslog();
    runFramework("R\xC3\xA9", accountForMemory);
    EXPECT_THAT(reports(), ElementsAre(MatchesRegex("HeapList_R__[0-9]{6}_[0-9]{4}\\.txt")));
}

TEST_F(QMMemoryReport, NothingIsWrittenOrLoggedWithoutItsDirectory) {
    runFramework("WppReceiver", accountForMemory);
    EXPECT_TRUE(fs::is_empty(root.path()));
    EXPECT_EQ("", log.text());
}
