#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Simulator/private/Road/Scenario.h"
#include "Tests/Torture/RoadControl.h"

namespace wpp_torture {

/// The programs that a road needs.
struct RoadPrograms {
    std::string receiver;   ///< the program under torture, which brings the hooks along
    std::string simulator;  ///< the program that plays its peers
    bool calls = false;     ///< the hooks are those of the system calls, not of the allocations
};

/// What a road with an injection came to.
struct RoadOutcome {
    std::uint64_t failures = 0;  ///< allocations or calls that failed
    std::uint64_t counted = 0;   ///< of the receiver's main, as far as they were counted
    std::uint64_t beforeMain = 0;
    bool everyStage = false;   ///< the phone came all the way
    bool walkedAgain = false;  ///< it did so once memory was back
    bool tlsLost = false;      ///< it could not, since OpenSSL remembers a failed initialisation for good
    bool openSslLost = false;  ///< OpenSSL lost memory of its own, which the leak check found
    bool logged = false;       ///< the receiver wrote a line of level error that an ordinary road has not
    std::string stage;         ///< the first stage that was not reached
    std::string accepted;      ///< what is accepted after such a failure; empty when nothing of the kind came
    std::string finding;       ///< what must never be; empty when nothing
    std::vector<std::string> where;    ///< the first failure's stack, as module+offset, innermost first
    std::vector<std::string> lastLog;  ///< the last lines of the receiver and the phone, with a finding
};

/// Takes one phone along the whole road with the injection, then ends the receiver with command 1.
///
/// A stage that is not reached is no finding by itself: a lost allocation may cost a frame. A finding is a
/// receiver that ends by a signal or with a status that is not documented, that does not end on command 1 once
/// memory is back, and one that keeps silent about a stage that it lost.
RoadOutcome takeTorturedRoad(const RoadPrograms& programs, simulator::TlsSource tls,
                             const Injection& injection);

/// The allocations or calls of an ordinary road, in the order in which they come.
std::vector<Site> listSites(const RoadPrograms& programs, simulator::TlsSource tls, RoadOutcome& outcome);

}  // namespace wpp_torture
