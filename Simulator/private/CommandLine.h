#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "Simulator/private/Peers/PhonePeer.h"
#include "Simulator/private/Road/Road.h"
#include "Simulator/private/Road/Soak.h"
#include "Simulator/private/Torture/KillTorture.h"

namespace simulator {

/// What the program is to be.
enum class Role { kController, kBluetooth, kPhone, kRoad, kTorture, kSoak };

/// What the command line asks for.
struct CommandLine {
    Role role = Role::kRoad;
    PhoneIdentity phone;     ///< of the phone
    RoadOptions road;        ///< of the road, and of the roads of the torture and the soak
    TortureOptions torture;  ///< of the torture
    SoakOptions soak;        ///< of the soak

    /// Reads the arguments, the program's own name left out. `ownPath` is this program's path; the receiver
    /// is looked for beside it.
    /// @return what is asked for; empty when there is nothing to do but end with `exitStatus`: help went to
    /// `output` (0), or a complaint to `errors` (not 0).
    static std::optional<CommandLine> parse(std::vector<std::string> arguments, const std::string& ownPath,
                                            std::ostream& output, std::ostream& errors, int& exitStatus);
};

}  // namespace simulator
