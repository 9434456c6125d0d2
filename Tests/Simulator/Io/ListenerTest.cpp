#include "Simulator/private/Io/Listener.h"

#include <filesystem>
#include <system_error>

#include "Simulator/private/Io/LocalSocket.h"
#include "Tests/Simulator/LoopFixture.h"

namespace simulator {
namespace {

using ListenerTest = LoopTest;

TEST_F(ListenerTest, HandsOverEveryConnection) {
    std::vector<UniqueFd> accepted;
    const Listener listener(loop, "SOCKET", [&](UniqueFd fd) { accepted.push_back(std::move(fd)); });
    const UniqueFd first = connectLocal("SOCKET");
    const UniqueFd second = connectLocal("SOCKET");
    EXPECT_TRUE(stepUntil([&] { return accepted.size() == 2; }));
}

TEST_F(ListenerTest, RemovesItsSocketFileAtTheEnd) {
    {
        const Listener listener(loop, "SOCKET", [](UniqueFd) {});
    }
    EXPECT_FALSE(std::filesystem::exists("SOCKET"));
}

TEST_F(ListenerTest, ThrowsWhenItCannotListen) {
    EXPECT_THROW(Listener(loop, "missing/SOCKET", [](UniqueFd) {}), std::system_error);
}

}  // namespace
}  // namespace simulator
