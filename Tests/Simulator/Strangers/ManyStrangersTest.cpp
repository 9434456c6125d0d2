#include <sys/resource.h>

#include <string>
#include <thread>
#include <vector>

#include "Tests/Simulator/Strangers/Siege.h"
#include "Tests/Support/Deadline.h"

namespace simulator {
namespace {

constexpr int kStrangers = 1000;
constexpr int kAddressesInARow = 250;
constexpr Milliseconds kPace{1};  // faster ones find the queue of ten full and wait for a second
constexpr rlim_t kUsualDescriptors = 1024;

/// The strangers have all the descriptors that they need, the receiver no more than is usual.
class ManyStrangers : public Siege {
protected:
    void SetUp() override {
        rlimit own{};
        ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &own), 0);
        own.rlim_cur = own.rlim_max;
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &own), 0);
        ASSERT_GT(own.rlim_cur, static_cast<rlim_t>(2 * kStrangers));
        Siege::SetUp();
        const rlimit usual{kUsualDescriptors, kUsualDescriptors};
        ASSERT_EQ(::prlimit(road->processId(Road::kReceiver), RLIMIT_NOFILE, &usual, nullptr), 0);
    }

    std::vector<Wire> silent;
};

std::string addressOf(int number) {
    return "127.5." + std::to_string(number / kAddressesInARow) + "." +
           std::to_string(number % kAddressesInARow + 1);
}

TEST_F(ManyStrangers, AThousandSilentConnectionsKeepNobodyOut) {
    const wpp_test::Stopwatch stopwatch;
    for (int number = 0; number < kStrangers; ++number) {
        silent.push_back(Wire::overTcp(addressOf(number)));
        std::this_thread::sleep_for(kPace);
        if (number % kAddressesInARow == 0) {
            serveHonestPhone(std::to_string(number) + " silent connections");
        }
    }
    serveHonestPhone(std::to_string(kStrangers) + " silent connections");
    for (Wire& wire : silent) {
        EXPECT_TRUE(endOf(wire).endedByReceiver);
    }
    EXPECT_GE(stopwatch.elapsed(), kPhoneLimit);
    serveHonestPhone("nobody");
}

}  // namespace
}  // namespace simulator
