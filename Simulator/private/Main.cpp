#include <unistd.h>

#include <exception>
#include <filesystem>
#include <iostream>

#include "Foundation/QMDescriptor.h"
#include "Simulator/private/CommandLine.h"
#include "Simulator/private/Peers/BluetoothPeer.h"
#include "Simulator/private/Peers/ControllerPeer.h"
#include "Simulator/private/Peers/OrderReader.h"
#include "Simulator/private/Road/RoadRunner.h"
#include "Simulator/private/Torture/KillTorture.h"

namespace {

using namespace simulator;

/// Runs a peer until it is ordered to end or its orders end. `Peer` is built from the loop, the events and
/// `rest`.
template <typename Peer, typename... Rest>
int runPeer(const Rest&... rest) {
    PollLoop loop;
    EventWriter events(std::cout);
    Peer peer(loop, events, rest...);
    OrderBook book(events, peer.orders());
    OrderReader reader(loop, UniqueFd(STDIN_FILENO), book);
    loop.run();
    return 0;
}

int run(const CommandLine& commandLine) {
    switch (commandLine.role) {
        case Role::kController:
            return runPeer<ControllerPeer>();
        case Role::kBluetooth:
            return runPeer<BluetoothPeer>();
        case Role::kPhone:
            return runPeer<PhonePeer>(commandLine.phone);
        case Role::kTorture:
            return KillTorture(commandLine.road, commandLine.torture, std::cout).run();
        case Role::kSoak:
            return Soak(commandLine.road, commandLine.soak, std::cout).run();
        case Role::kRoad:
            break;
    }
    return RoadRunner(commandLine.road, std::cout).run();
}

}  // namespace

int main(int argc, char** argv) {
    qm_OccupyStandardDescriptors();
    try {
        int exitStatus = 0;
        const std::string ownPath = std::filesystem::read_symlink("/proc/self/exe").string();
        const auto commandLine = simulator::CommandLine::parse(
            std::vector<std::string>(argv + 1, argv + argc), ownPath, std::cout, std::cerr, exitStatus);
        return commandLine ? run(*commandLine) : exitStatus;
    } catch (const std::exception& error) {
        std::cerr << "wpp-simulator: " << error.what() << std::endl;
        return 1;
    }
}
