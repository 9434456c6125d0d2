#include "Foundation/QMFindHandle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "Foundation/QMFileSys.h"
#include "Tests/QMFramework92/Foundation/FileCallHooks.h"
#include "Tests/QMFramework92/Foundation/FileScene.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ProcessState.h"
#include "Utility/QMString.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using wpp_test::FileScene;
using wpp_test::LogCapture;
using wpp_test::ReaddirHook;

std::vector<std::string> found(const std::string& pathWithPattern, bool hideHidden = false) {
    std::vector<std::string> names;
    QMFindHandle handle(hideHidden);
    QMFoundEntry entry;
    for (bool more = QMFileSys::FindFirst(handle, pathWithPattern.c_str(), entry); more;
         more = QMFileSys::FindNext(handle, entry)) {
        names.push_back(entry.name);
    }
    EXPECT_FALSE(handle.isIncomplete());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(QMFindHandle, APatternOfQuestionMarksFindsNamesOfThatLength) {
    FileScene scene;
    scene.file("log_0001.txt");
    scene.file("log_1.txt");
    EXPECT_THAT(found(scene.at("log_????.txt")), ElementsAre("log_0001.txt"));
}

TEST(QMFindHandle, TheHiddenFilterNeverReturnsHiddenNames) {
    FileScene scene;
    for (const char* name : {".DS_Store", "._a", ".git", "FILE0000.CHK", "a", "b.chk", "c.CHK.txt"}) {
        scene.file(name);
    }
    EXPECT_THAT(found(scene.at("*"), true), ElementsAre("a", "b.chk", "c.CHK.txt"));
    EXPECT_EQ(found(scene.at("*"), false).size(), 7U);
    EXPECT_THAT(found(scene.at(".*"), true), IsEmpty());
}

TEST(QMFindHandle, EntriesCarryTheirKind) {
    FileScene scene;
    scene.file("file");
    scene.folder("folder");
    QMFindHandle handle;
    QMFoundEntry entry;
    ASSERT_TRUE(QMFileSys::FindFirst(handle, scene.at("fi*").c_str(), entry));
    EXPECT_EQ(entry.kind, 32);
    ASSERT_TRUE(QMFileSys::FindFirst(handle, scene.at("fo*").c_str(), entry));
    EXPECT_EQ(entry.kind, 4);
}

TEST(QMFindHandle, AnEntryOfAnotherTypeIsLoggedAndReturned) {
    FileScene scene;
    scene.link("link", "nowhere");
    scene.fifo("pipe");
    const LogCapture log;
    QMFindHandle handle;
    QMFoundEntry entry;
    ASSERT_TRUE(QMFileSys::FindFirst(handle, scene.at("link").c_str(), entry));
    EXPECT_EQ(entry.kind, 0);
    EXPECT_TRUE(log.contains("[error] FindNext()"));
    EXPECT_TRUE(log.contains("error d_type[10][link]"));
    ASSERT_TRUE(QMFileSys::FindFirst(handle, scene.at("pipe").c_str(), entry));
    EXPECT_EQ(entry.kind, 0);
    EXPECT_TRUE(log.contains("error d_type[1][pipe]"));
}

TEST(QMFindHandle, WhereNoTypesAreReportedTheEntryItselfTells) {
    FileScene scene;
    scene.file("file");
    scene.folder("folder");
    scene.link("link", "file");
    const LogCapture log;
    const ReaddirHook unknown([](DIR*, dirent* entry) {
        if (entry != nullptr) {
            entry->d_type = DT_UNKNOWN;
        }
        return entry;
    });
    QMFindHandle handle;
    QMFoundEntry entry;
    ASSERT_TRUE(QMFileSys::FindFirst(handle, scene.at("file").c_str(), entry));
    EXPECT_EQ(entry.kind, 32);
    ASSERT_TRUE(QMFileSys::FindFirst(handle, scene.at("folder").c_str(), entry));
    EXPECT_EQ(entry.kind, 4);
    ASSERT_TRUE(QMFileSys::FindFirst(handle, scene.at("link").c_str(), entry));
    EXPECT_EQ(entry.kind, 0);
    EXPECT_TRUE(log.contains("error d_type[0][file]"));
    EXPECT_EQ(log.count("error d_type[0]"), 3U);
}

TEST(QMFindHandle, AnEntryThatVanishedAndHasNoTypeIsReturnedWithoutKind) {
    FileScene scene;
    const std::string path = scene.file("file");
    const LogCapture log;
    const ReaddirHook vanish([&](DIR*, dirent* entry) {
        if (entry != nullptr) {
            entry->d_type = DT_UNKNOWN;
        }
        unlink(path.c_str());
        return entry;
    });
    QMFindHandle handle;
    QMFoundEntry entry;
    ASSERT_TRUE(QMFileSys::FindFirst(handle, path.c_str(), entry));
    EXPECT_EQ(entry.kind, 0);
}

TEST(QMFindHandle, DotAndDotDotAreNeverFound) {
    FileScene scene;
    EXPECT_THAT(found(scene.at("*")), IsEmpty());
    EXPECT_THAT(found(scene.at(".")), IsEmpty());
    EXPECT_THAT(found(scene.at("..")), IsEmpty());
}

TEST(QMFindHandle, WithoutASlashTheWorkingDirectoryIsSearched) {
    FileScene scene;
    scene.file("here");
    scene.directory.enter();
    EXPECT_THAT(found("h*"), ElementsAre("here"));
    EXPECT_THAT(found("./h*"), ElementsAre("here"));
}

TEST(QMFindHandle, APatternInTheRootSearchesTheRoot) {
    EXPECT_THAT(found("/usr"), ElementsAre("usr"));
    EXPECT_THAT(found("//us?"), ElementsAre("usr"));
}

TEST(QMFindHandle, AnEmptyPatternFindsNothing) {
    FileScene scene;
    scene.file("a");
    EXPECT_THAT(found(scene.top() + "/"), IsEmpty());
}

TEST(QMFindHandle, AnyNameIsFoundAsItIs) {
    FileScene scene;
    const std::vector<std::string> names = {
        "-rf", "*", "?", " a b ", "two\nlines", "\xC3\xA9.txt", "bad\xFFutf", std::string(255, 'n')};
    for (const std::string& name : names) {
        scene.file(name);
    }
    std::vector<std::string> sorted = names;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(found(scene.at("*")), sorted);
    EXPECT_THAT(found(scene.at("-*")), ElementsAre("-rf"));
    EXPECT_THAT(found(scene.at("?.txt")), ElementsAre("\xC3\xA9.txt"));
}

TEST(QMFindHandle, AStarBeforeTheLastSlashIsPartOfTheDirectorysName) {
    FileScene scene;
    scene.file("a*/one");
    scene.file("ab/two");
    EXPECT_THAT(found(scene.at("a*/*")), ElementsAre("one"));
}

TEST(QMFindHandle, AMissingDirectoryIsLogged) {
    FileScene scene;
    const LogCapture log;
    QMFindHandle handle;
    QMFoundEntry entry;
    EXPECT_FALSE(QMFileSys::FindFirst(handle, scene.at("none/*").c_str(), entry));
    EXPECT_TRUE(log.contains("FindFirst()"));
    EXPECT_TRUE(log.contains("[2 : No such file or directory] , path[" + scene.at("none") + "], opendir()"));
    EXPECT_TRUE(handle.isIncomplete());
    EXPECT_FALSE(handle.isOpen());
    EXPECT_FALSE(QMFileSys::FindNext(handle, entry));
}

TEST(QMFindHandle, AFileOrAFifoIsNoDirectoryToSearch) {
    FileScene scene;
    scene.file("file");
    scene.fifo("fifo");
    const LogCapture log;
    QMFindHandle handle;
    QMFoundEntry entry;
    EXPECT_FALSE(QMFileSys::FindFirst(handle, scene.at("file/*").c_str(), entry));
    EXPECT_FALSE(QMFileSys::FindFirst(handle, scene.at("fifo/*").c_str(), entry));
    EXPECT_EQ(log.count("[20 : Not a directory]"), 2U);
}

TEST(QMFindHandle, AnUnreadableDirectoryIsLogged) {
    FileScene scene;
    scene.file("closed/a");
    const LogCapture log;
    ASSERT_EQ(chmod(scene.at("closed").c_str(), 0), 0);
    EXPECT_TRUE(wpp_test::inChildWithoutRights(scene, [&] {
        QMFindHandle handle;
        QMFoundEntry entry;
        return !QMFileSys::FindFirst(handle, scene.at("closed/*").c_str(), entry) && handle.isIncomplete();
    }));
    EXPECT_TRUE(log.contains("[13 : Permission denied] , path[" + scene.at("closed") + "], opendir()"));
    chmod(scene.at("closed").c_str(), 0700);
}

TEST(QMFindHandle, WithoutAPathNothingIsFoundSilently) {
    const LogCapture log;
    QMFindHandle handle;
    QMFoundEntry entry;
    EXPECT_FALSE(QMFileSys::FindFirst(handle, nullptr, entry));
    EXPECT_FALSE(QMFileSys::FindFirst(handle, "", entry));
    EXPECT_FALSE(QMFileSys::FindNext(handle, entry));
    QMFileSys::FindClose(handle);
    EXPECT_TRUE(log.lines().empty());
}

TEST(QMFindHandle, WideAndFrameworkStringsNameSearchesToo) {
    FileScene scene;
    scene.file("\xC3\xA9_1");
    scene.directory.enter();
    QMFindHandle handle;
    QMFoundEntry entry;
    EXPECT_TRUE(QMFileSys::FindFirst(handle, L"\u00e9*", entry));
    EXPECT_EQ(entry.name, "\xC3\xA9_1");
    QMString text("*_1", QM_CODE_PAGE_UTF8);
    EXPECT_TRUE(QMFileSys::FindFirst(handle, text, entry));
}

TEST(QMFindHandle, AReadErrorIsNotTheEnd) {
    FileScene scene;
    scene.file("a");
    const LogCapture log;
    QMFindHandle handle;
    QMFoundEntry entry;
    {
        const ReaddirHook broken([](DIR*, dirent*) -> dirent* {
            errno = EIO;
            return nullptr;
        });
        EXPECT_FALSE(QMFileSys::FindFirst(handle, scene.at("*").c_str(), entry));
    }
    EXPECT_TRUE(handle.isIncomplete());
    EXPECT_TRUE(log.contains("[5 : Input/output error] , path[" + scene.top() + "], readdir()"));
    EXPECT_TRUE(QMFileSys::FindFirst(handle, scene.at("*").c_str(), entry));
    EXPECT_FALSE(handle.isIncomplete());
}

TEST(QMFindHandle, TheEndStaysTheEnd) {
    FileScene scene;
    scene.file("a");
    QMFindHandle handle;
    QMFoundEntry entry;
    ASSERT_TRUE(QMFileSys::FindFirst(handle, scene.at("*").c_str(), entry));
    EXPECT_FALSE(QMFileSys::FindNext(handle, entry));
    EXPECT_FALSE(QMFileSys::FindNext(handle, entry));
    EXPECT_EQ(entry.name, "a");
}

TEST(QMFindHandle, EachWayOutClosesTheDirectory) {
    FileScene scene;
    scene.file("a");
    const auto before = wpp_test::openDescriptors();
    {
        QMFindHandle handle;
        QMFoundEntry entry;
        ASSERT_TRUE(QMFileSys::FindFirst(handle, scene.at("*").c_str(), entry));
        ASSERT_TRUE(QMFileSys::FindFirst(handle, scene.at("*").c_str(), entry));
        EXPECT_EQ(wpp_test::openDescriptors().size(), before.size() + 1);
        QMFileSys::FindClose(handle);
        EXPECT_EQ(wpp_test::openDescriptors(), before);
        QMFileSys::FindClose(handle);
        ASSERT_TRUE(QMFileSys::FindFirst(handle, scene.at("*").c_str(), entry));
        EXPECT_FALSE(QMFileSys::FindFirst(handle, nullptr, entry));
        EXPECT_EQ(wpp_test::openDescriptors(), before);
        ASSERT_TRUE(QMFileSys::FindFirst(handle, scene.at("*").c_str(), entry));
    }
    EXPECT_EQ(wpp_test::openDescriptors(), before);
}

TEST(QMFindHandle, ASearchMovesWithItsHandle) {
    FileScene scene;
    scene.file("a");
    scene.file("b");
    const auto before = wpp_test::openDescriptors();
    QMFindHandle first;
    QMFoundEntry entry;
    ASSERT_TRUE(QMFileSys::FindFirst(first, scene.at("*").c_str(), entry));
    QMFindHandle second(std::move(first));
    EXPECT_TRUE(QMFileSys::FindNext(second, entry));
    EXPECT_FALSE(QMFileSys::FindNext(second, entry));
    QMFileSys::FindClose(second);
    EXPECT_EQ(wpp_test::openDescriptors(), before);
}

}  // namespace
