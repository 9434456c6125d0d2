#include <gtest/gtest.h>

#include <string>

#include "Diagnostics/QMLog.h"
#include "Foundation/QMFileSys.h"
#include "Tests/QMFramework92/Foundation/FileScene.h"
#include "Tests/Support/HeapWatch.h"
#include "Tests/Support/LogCapture.h"

namespace {

using wpp_test::EmptyHeap;
using wpp_test::FileScene;
using wpp_test::LogCapture;

class QMFileSysWithoutMemory : public testing::Test {
protected:
    QMFileSysWithoutMemory() {
        // The first log line of a process sets up what the later ones share.
        qm_LogStdErrorShort("warm/up", "", 1);
        log.clear();
    }

    /// Of an operation that was carried out with an empty heap.
    void expectFailure(bool result) {
        EXPECT_FALSE(result);
        EXPECT_TRUE(log.contains("[12 : Cannot allocate memory]"));
        EXPECT_EQ(scene.content(longName + "/a"), "content");
    }

    LogCapture log;
    FileScene scene;
    const std::string longName = std::string(200, 'n');
    const std::string source = scene.folder(longName);
    const std::string file = scene.file(longName + "/a");
    const std::string target = scene.at("target");
};

TEST_F(QMFileSysWithoutMemory, ASearchFailsAndSaysSo) {
    QMFindHandle handle;
    QMFoundEntry entry;
    bool result = true;
    {
        const EmptyHeap empty;
        result = QMFileSys::FindFirst(handle, file.c_str(), entry);
    }
    expectFailure(result);
    EXPECT_TRUE(handle.isIncomplete());
}

TEST_F(QMFileSysWithoutMemory, ATreeStays) {
    bool result = true;
    {
        const EmptyHeap empty;
        result = QMFileSys::DeleteDirectory(source.c_str(), false);
    }
    expectFailure(result);
}

TEST_F(QMFileSysWithoutMemory, ACopyFails) {
    bool result = true;
    {
        const EmptyHeap empty;
        result = QMFileSys::Copy(source.c_str(), target.c_str(), false, false);
    }
    expectFailure(result);
}

TEST_F(QMFileSysWithoutMemory, AMoveKeepsTheSource) {
    bool result = true;
    {
        const EmptyHeap empty;
        result = QMFileSys::Move(source.c_str(), target.c_str());
    }
    expectFailure(result);
}

}  // namespace
