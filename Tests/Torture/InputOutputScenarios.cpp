#include <filesystem>
#include <fstream>
#include <optional>

#include "Communication/QMOpenSockets.h"
#include "Foundation/QMFileSys.h"
#include "Foundation/QMFindHandle.h"
#include "Foundation/QMStorage.h"
#include "Tests/Torture/ScenarioTools.h"
#include "Tests/Torture/Scenarios.h"
#include "Tests/Torture/StreamScene.h"
#include "Utility/QMLogFile.h"

namespace wpp_torture {

namespace {

namespace fs = std::filesystem;

void writeFile(const std::string& path, const std::string& text) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << text;
}

void serverStream(Trial& trial) {
    constexpr std::chrono::milliseconds kTorturedLimit{400};
    const Scene scene;
    Answerer answerer;
    bool started = false;
    trial.begin();
    try {
        started = answerer.start();
    } catch (const std::bad_alloc&) {
        trial.told(false);
    }
    trial.told(started);
    if (started) {
        trial.expect(isAnswered(kTorturedLimit), "the server does not answer");
    }
    trial.end();
    if (!started) {
        trial.require(answerer.start(), "the server does not start afterwards");
    }
    trial.require(isAnswered(std::chrono::milliseconds(kPatienceMs)),
                  "the server does not answer afterwards");
    answerer.stream.Stop();
}

void clientStream(Trial& trial) {
    const Scene scene;
    Asker asker;
    bool started = false;
    trial.begin();
    try {
        started = asker.start();
    } catch (const std::bad_alloc&) {
        trial.told(false);
    }
    trial.told(started);
    const bool connected = started && comes([&] { return asker.stream.hasThread(); }) && !trial.wasRefused();
    trial.end();
    if (!connected) {
        asker.stream.Stop();
        trial.require(asker.start(), "the client does not start afterwards");
    }
    trial.require(asker.accept(), "the client does not connect once there is memory");
    trial.require(asker.exchange(), "the client does not exchange afterwards");
    asker.stream.Stop();
}

void clientExchanges(Trial& trial) {
    const Scene scene;
    Asker asker;
    trial.require(asker.start() && asker.accept(), "the client does not connect");
    trial.begin();
    trial.told(asker.exchange());
    trial.end();
    trial.require(asker.exchange(), "the client does not exchange afterwards");
    asker.stream.Stop();
}

void openSockets(Trial& trial) {
    QMOpenSockets sockets;
    int ends[2] = {-1, -1};
    trial.require(::pipe(ends) == 0, "no pipe");
    QMDescriptor reading(ends[0]);
    QMDescriptor writing(ends[1]);
    trial.begin();
    const bool reserved = sockets.reserve();
    trial.told(reserved);
    if (reserved) {
        trial.require(sockets.adopt(std::move(reading)) == ends[0], "a reserved place is not taken");
    }
    trial.end();
    trial.require(sockets.reserve(), "no place can be reserved afterwards");
    sockets.adopt(std::move(writing));
    trial.require(sockets.contains(ends[1]), "no socket is adopted afterwards");
    sockets.closeAll();
}

void filesAndDirectories(Trial& trial) {
    const Scene scene;
    const std::string source = scene.path("source/deep/file");
    writeFile(source, "content");
    const std::string made = scene.path("made/below/it");
    const std::string copy = scene.path("copy");
    const std::string moved = scene.path("moved");
    const std::string tree = scene.path("source");
    trial.begin();
    trial.told(QMFileSys::CreateDirectory(made.c_str(), false));
    const bool copied = QMFileSys::Copy(tree.c_str(), copy.c_str(), false, false);
    const bool wasMoved = copied && QMFileSys::Move(copy.c_str(), moved.c_str());
    const bool deleted = QMFileSys::DeleteDirectory(tree.c_str(), false);
    trial.end();
    trial.told(copied);
    trial.told(copied == wasMoved);
    trial.told(deleted);
    trial.require(!wasMoved || fs::exists(moved + "/deep/file"), "a move that succeeded has moved nothing");
    trial.require(!deleted || !fs::exists(tree), "a tree that was deleted is there");
    trial.require(wasMoved || !copied || fs::exists(copy + "/deep/file"),
                  "a failed move has lost its source");
    trial.require(
        QMFileSys::DeleteDirectory(scene.path("made").c_str(), false) || !fs::exists(scene.path("made")),
        "a directory cannot be deleted afterwards");
}

void singleFiles(Trial& trial) {
    const Scene scene;
    const std::string file = scene.path("file");
    const std::string copy = scene.path("copy");
    writeFile(file, "content");
    trial.begin();
    QMDiskSpace space{};
    trial.told(QMFileSys::GetDiskFreeSpace(file.c_str(), space));
    trial.told(QMFileSys::chkAttribute(file.c_str()) == QMFileSys::kFile);
    const bool copied = QMFileSys::Copy(file.c_str(), copy.c_str(), true, false);
    const bool deleted = QMFileSys::Delete(file.c_str(), false);
    trial.end();
    trial.told(copied);
    trial.told(deleted);
    trial.require(!copied || fs::file_size(copy) == 7, "a copy that succeeded is not whole");
    trial.require(fs::exists(file) != deleted, "a file is not what the status says");
}

void directorySearch(Trial& trial) {
    const Scene scene;
    writeFile(scene.path("log_0001.txt"), "a");
    writeFile(scene.path("log_0002_with_a_name_that_is_too_long_for_the_string.txt"), "b");
    const std::string pattern = scene.path("log_*.txt");
    trial.begin();
    int count = 0;
    QMFindHandle handle;
    {
        QMFoundEntry entry;
        for (bool found = QMFileSys::FindFirst(handle, pattern.c_str(), entry); found;
             found = QMFileSys::FindNext(handle, entry)) {
            ++count;
        }
    }
    trial.end();
    trial.told(!handle.isIncomplete());
    trial.expect(count == 2, "an entry is missing");
    QMFoundEntry entry;
    trial.require(QMFileSys::FindFirst(handle, pattern.c_str(), entry),
                  "the handle finds nothing afterwards");
}

void storage(Trial& trial) {
    const Scene scene;
    const std::string path = scene.path("file");
    char text[8] = {};
    trial.begin();
    QMStorage file;
    const bool opened = file.Open(path.c_str(), "w+b") == 0;
    trial.told(opened);
    if (opened) {
        trial.told(file.WriteLine("content") == 0);
        trial.told(file.Flush() == 0);
        trial.told(file.Seek(0, SEEK_SET) == 0);
        trial.told(file.Read(text, 7) == 7);
    }
    trial.told(file.Close() == 0);
    trial.end();
    trial.expect(std::memcmp(text, "content", 7) == 0, "what was written is not what is read");
    trial.require(file.Open(path.c_str(), "a+b") == 0, "the file cannot be opened afterwards");
    trial.require(file.Close() == 0, "the file cannot be closed afterwards");
}

void logFile(Trial& trial) {
    const Scene scene;
    const std::wstring directory = fs::path(scene.path("")).wstring();
    trial.begin();
    QMLogFile log;
    for (const std::int32_t generations : {3, 3, QMLogFile::kNamedByTime}) {
        const bool opened =
            log.Open(directory.c_str(), L"trace", L"txt", false, QMLogFile::kNoLimit, generations);
        trial.told(opened);
        trial.told(log.WriteFormat("line %d\n", generations) == opened && opened);
    }
    log.Close();
    trial.end();
    trial.require(log.Open(directory.c_str(), L"after", L"txt", false, QMLogFile::kNoLimit, 0),
                  "the log file cannot be opened afterwards");
    log.Close();
}

}  // namespace

std::vector<Scenario> inputOutputScenarios() {
    return {
        {"server-stream", serverStream},
        {"client-stream", clientStream},
        {"client-exchanges", clientExchanges},
        {"open-sockets", openSockets},
        {"files-and-directories", filesAndDirectories},
        {"single-files", singleFiles},
        {"directory-search", directorySearch},
        {"storage", storage},
        {"log-file", logFile},
    };
}

}  // namespace wpp_torture
