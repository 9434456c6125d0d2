#include "Simulator/private/Road/PeerProcess.h"

#include "Simulator/private/Road/SignalWatch.h"
#include "Tests/Simulator/LoopFixture.h"

namespace simulator {
namespace {

class PeerProcessTest : public LoopTest {
protected:
    void start(const std::string& script, const std::string& logFile = {}) {
        peer = std::make_unique<PeerProcess>(
            loop, "peer", PeerProcess::Program{"/bin/sh", {"-c", script}, directory.path().string(), logFile},
            [this](const std::string& line) { lines.push_back(line); });
    }

    std::optional<PeerEvent> await(const std::string& name, const Json& where = Json::object()) {
        std::optional<PeerEvent> event;
        stepUntil([&] {
            event = peer->take({"peer", name, where, Json::object(), Milliseconds(0)});
            return event.has_value();
        });
        return event;
    }

    std::vector<std::string> lines;
    std::unique_ptr<PeerProcess> peer;
    SignalWatch signals{loop, {[](int) {}, [this] { peer->checkEnd(); }}};
};

TEST_F(PeerProcessTest, KeepsEventsUntilTheyAreTaken) {
    start(R"(echo '{"event":"a","time":1}'; echo '{"event":"b","time":2}'; echo '{"event":"a","time":3}')");
    EXPECT_EQ(await("b")->time, 2.0);
    EXPECT_EQ(await("a")->time, 1.0);
    EXPECT_EQ(await("a")->time, 3.0);
    EXPECT_EQ(lines.size(), 3u);
}

TEST_F(PeerProcessTest, GivesOrdersAsLines) {
    start("read line; echo \"$line\"");
    peer->order({{"order", "work"}});
    EXPECT_TRUE(await("log", {{"line", R"({"order":"work"})"}}));
}

TEST_F(PeerProcessTest, EndIsAnEventBehindAllOutput) {
    start("echo last; printf rest; exit 4");
    EXPECT_TRUE(await("exit", {{"status", 4}}));
    EXPECT_TRUE(peer->hasEnded());
    EXPECT_EQ(lines, (std::vector<std::string>{"last", "rest"}));
}

TEST_F(PeerProcessTest, EndByASignalIsTold) {
    start("kill -9 $$");
    EXPECT_TRUE(await("exit", {{"signal", 9}}));
}

TEST_F(PeerProcessTest, OrderToAProcessThatHasEndedIsDropped) {
    start("exit 0");
    ASSERT_TRUE(await("exit"));
    peer->order({{"order", "work"}});
    loop.step(Milliseconds(0));
    EXPECT_TRUE(peer->hasEnded());
}

TEST_F(PeerProcessTest, CopiesItsOutputToAFile) {
    start("echo one; echo two", "copy.log");
    ASSERT_TRUE(await("exit"));
    EXPECT_EQ(readFile("copy.log"), "one\ntwo\n");
}

TEST_F(PeerProcessTest, KeepsItsLastLines) {
    start("for number in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15; do echo $number; done");
    ASSERT_TRUE(await("exit"));
    ASSERT_EQ(peer->lastLines().size(), 12u);
    EXPECT_EQ(peer->lastLines().front(), "4");
    EXPECT_EQ(peer->lastLines().back(), "15");
}

}  // namespace
}  // namespace simulator
