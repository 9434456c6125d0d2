#pragma once

#include <string>
#include <vector>

#include "Tests/Torture/CallTable.h"

namespace wpp_torture {

/// What a scenario may end with after some failures, by the described behaviour of what it uses.
constexpr const char* kDeadUntilRestart = "the stream serves again once it is started anew";
constexpr const char* kPeerLost = "the peer is lost and comes again";
constexpr const char* kTornFrame = "a frame is torn, and its link has to be made anew";

constexpr const char* kSilentRetry = "the call is tried again without a line in the log";

// And what a road may end with.
constexpr const char* kDeafToController = "the controller is not heard, and the process has to be killed";
constexpr const char* kLinkStaysLost = "a link that was lost stays lost until the process is started anew";

/// @return whether the outcome is accepted after this failure.
bool isAccepted(const std::string& outcome, Call call, Effect effect);

/// An outcome that is accepted after some failures of a call, and why.
struct AcceptedOutcome {
    const char* outcome;
    Call call;
    Effect effect;  ///< kAnyEffect for each of the call's
    const char* reason;
};
constexpr Effect kAnyEffect = -1;

const std::vector<AcceptedOutcome>& acceptedOutcomes();

}  // namespace wpp_torture
