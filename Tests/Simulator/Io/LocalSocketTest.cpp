#include "Simulator/private/Io/LocalSocket.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "Tests/Simulator/LoopFixture.h"

namespace simulator {
namespace {

using LocalSocketTest = LoopTest;

TEST_F(LocalSocketTest, ConnectsToAListeningSocket) {
    const UniqueFd listener = listenLocal("SOCKET");
    EXPECT_TRUE(static_cast<bool>(connectLocal("SOCKET")));
    EXPECT_TRUE(static_cast<bool>(acceptOne(listener.get())));
}

TEST_F(LocalSocketTest, AcceptGivesNothingWhenNobodyKnocks) {
    const UniqueFd listener = listenLocal("SOCKET");
    EXPECT_FALSE(static_cast<bool>(acceptOne(listener.get())));
}

TEST_F(LocalSocketTest, ConnectGivesNothingWithoutASocketFile) {
    EXPECT_FALSE(static_cast<bool>(connectLocal("SOCKET")));
}

TEST_F(LocalSocketTest, ConnectGivesNothingAtAFileThatNobodyListensAt) {
    { const UniqueFd listener = listenLocal("SOCKET"); }
    ASSERT_TRUE(std::filesystem::exists("SOCKET"));
    EXPECT_FALSE(static_cast<bool>(connectLocal("SOCKET")));
}

TEST_F(LocalSocketTest, ListenReplacesAFileLeftOver) {
    std::ofstream("SOCKET") << "left over";
    const UniqueFd listener = listenLocal("SOCKET");
    EXPECT_TRUE(static_cast<bool>(connectLocal("SOCKET")));
}

TEST_F(LocalSocketTest, NameThatIsTooLongIsRefused) {
    EXPECT_THROW(listenLocal(std::string(108, 'n')), std::system_error);
}

TEST_F(LocalSocketTest, ListeningInAMissingDirectoryIsRefused) {
    EXPECT_THROW(listenLocal("missing/SOCKET"), std::system_error);
}

}  // namespace
}  // namespace simulator
