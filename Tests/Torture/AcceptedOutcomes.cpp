#include "Tests/Torture/AcceptedOutcomes.h"

#include <algorithm>
#include <cerrno>

namespace wpp_torture {

namespace {

constexpr const char* kNotBound = "a server keeps running without a socket until Stop";
constexpr const char* kWorkDone = "a synchronous client has done its work once connected";
constexpr const char* kTakenAway = "the system has taken the connection away";
constexpr const char* kTorn = "partial sends are not retried";

}  // namespace

const std::vector<AcceptedOutcome>& acceptedOutcomes() {
    static const std::vector<AcceptedOutcome> table{
        {kDeadUntilRestart, Call::kSocketLocal, kAnyEffect, "a stream's thread ends when it gets no socket"},
        {kDeadUntilRestart, Call::kBindLocal, kAnyEffect,
         "a server keeps running without a socket until Stop"},
        {kDeadUntilRestart, Call::kListenLocal, kAnyEffect,
         "a server keeps running without a socket until Stop"},
        {kDeadUntilRestart, Call::kThread, kAnyEffect,
         "Start succeeds without a thread, which hasThread() tells"},
        {kDeadUntilRestart, Call::kSendLocal, ECONNRESET, kWorkDone},
        {kDeadUntilRestart, Call::kSendLocal, EPIPE, kWorkDone},
        {kDeadUntilRestart, Call::kSendLocal, kShort, kTorn},
        {kDeadUntilRestart, Call::kRecvLocal, ECONNRESET, kWorkDone},
        {kPeerLost, Call::kAcceptLocal, kAnyEffect, kTakenAway},
        {kPeerLost, Call::kSendLocal, ECONNRESET, kTakenAway},
        {kPeerLost, Call::kSendLocal, EPIPE, kTakenAway},
        {kPeerLost, Call::kRecvLocal, ECONNRESET, kTakenAway},
        {kPeerLost, Call::kRecvLocal, ENOMEM, "a peer whose frame stays torn is dropped"},
        {kSilentRetry, Call::kConnectLocal, kAnyEffect, "a peer that does not listen yet is no failure"},
        {kDeafToController, Call::kBindLocal, kAnyEffect, kNotBound},
        {kDeafToController, Call::kListenLocal, kAnyEffect, kNotBound},
        {kLinkStaysLost, Call::kBindLocal, kAnyEffect, kNotBound},
        {kLinkStaysLost, Call::kListenLocal, kAnyEffect, kNotBound},
        {kLinkStaysLost, Call::kSendLocal, ECONNRESET, kWorkDone},
        {kLinkStaysLost, Call::kSendLocal, EPIPE, kWorkDone},
        {kLinkStaysLost, Call::kSendLocal, kShort, kTorn},
        {kLinkStaysLost, Call::kRecvLocal, ECONNRESET, kWorkDone},
        {kTornFrame, Call::kSendLocal, kShort, kTorn},
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
