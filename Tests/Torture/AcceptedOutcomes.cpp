#include "Tests/Torture/AcceptedOutcomes.h"

#include <algorithm>
#include <cerrno>

namespace wpp_torture {

const std::vector<AcceptedOutcome>& acceptedOutcomes() {
    static const std::vector<AcceptedOutcome> table{
        {kDeadUntilRestart, Call::kSocketLocal, kAnyEffect, "a stream's thread ends when it gets no socket"},
        {kDeadUntilRestart, Call::kBindLocal, kAnyEffect,
         "a server keeps running without a socket until Stop"},
        {kDeadUntilRestart, Call::kListenLocal, kAnyEffect,
         "a server keeps running without a socket until Stop"},
        {kDeadUntilRestart, Call::kThread, kAnyEffect,
         "Start succeeds without a thread, which hasThread() tells"},
        {kDeadUntilRestart, Call::kSendLocal, kAnyEffect,
         "a lost connection of a synchronous client stays lost"},
        {kDeadUntilRestart, Call::kRecvLocal, kAnyEffect,
         "a lost connection of a synchronous client stays lost"},
        {kPeerLost, Call::kAcceptLocal, kAnyEffect, "the system has taken the connection away"},
        {kPeerLost, Call::kSendLocal, kAnyEffect, "the system has taken the connection away"},
        {kPeerLost, Call::kRecvLocal, kAnyEffect, "the system has taken the connection away"},
        {kSilentRetry, Call::kConnectLocal, kAnyEffect, "a peer that does not listen yet is no failure"},
        {kDeafToController, Call::kBindLocal, kAnyEffect,
         "a server keeps running without a socket until Stop"},
        {kDeafToController, Call::kListenLocal, kAnyEffect,
         "a server keeps running without a socket until Stop"},
        {kLinkStaysLost, Call::kBindLocal, kAnyEffect, "a server keeps running without a socket until Stop"},
        {kLinkStaysLost, Call::kListenLocal, kAnyEffect,
         "a server keeps running without a socket until Stop"},
        {kLinkStaysLost, Call::kSendLocal, kAnyEffect,
         "a synchronous client has done its work once connected"},
        {kLinkStaysLost, Call::kRecvLocal, kAnyEffect,
         "a synchronous client has done its work once connected"},
        {kTornFrame, Call::kSendLocal, kShort, "partial sends are not retried"},
    };
    return table;
}

bool isAccepted(const std::string& outcome, Call call, Effect effect) {
    const auto& table = acceptedOutcomes();
    return std::any_of(table.begin(), table.end(), [&](const AcceptedOutcome& accepted) {
        return outcome == accepted.outcome && call == accepted.call &&
               (accepted.effect == kAnyEffect || accepted.effect == effect);
    });
}

}  // namespace wpp_torture
