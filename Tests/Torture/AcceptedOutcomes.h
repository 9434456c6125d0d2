#pragma once

#include <string>

#include "Tests/Torture/CallTable.h"

namespace wpp_torture {

/// What a scenario may end with after some failures, by the described behaviour of what it uses.
constexpr const char* kDeadUntilRestart = "the stream serves again once it is started anew";
constexpr const char* kPeerLost = "the peer is lost and comes again";
constexpr const char* kTornFrame = "a frame is torn, and its link has to be made anew";

constexpr const char* kSilentRetry = "the call is tried again without a line in the log";

/// @return whether the outcome is accepted after this failure.
bool isAccepted(const std::string& outcome, Call call, Effect effect);

}  // namespace wpp_torture
