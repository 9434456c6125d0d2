#include "Tests/Torture/AcceptedOutcomes.h"

#include <algorithm>
#include <cerrno>
#include <vector>

namespace wpp_torture {

namespace {

constexpr Effect kAny = -1;

struct Accepted {
    const char* outcome;
    Call call;
    Effect effect;
    const char* reason;
};

const std::vector<Accepted>& acceptedOutcomes() {
    static const std::vector<Accepted> table{
        {kDeadUntilRestart, Call::kSocketLocal, kAny, "a stream's thread ends when it gets no socket"},
        {kDeadUntilRestart, Call::kBindLocal, kAny, "a server keeps running without a socket until Stop"},
        {kDeadUntilRestart, Call::kListenLocal, kAny, "a server keeps running without a socket until Stop"},
        {kDeadUntilRestart, Call::kThread, kAny, "Start succeeds without a thread, which hasThread() tells"},
        {kDeadUntilRestart, Call::kSendLocal, kAny, "a lost connection of a synchronous client stays lost"},
        {kDeadUntilRestart, Call::kRecvLocal, kAny, "a lost connection of a synchronous client stays lost"},
        {kPeerLost, Call::kAcceptLocal, kAny, "the system has taken the connection away"},
        {kPeerLost, Call::kSendLocal, kAny, "the system has taken the connection away"},
        {kPeerLost, Call::kRecvLocal, kAny, "the system has taken the connection away"},
        {kSilentRetry, Call::kConnectLocal, kAny, "a peer that does not listen yet is no failure"},
        {kTornFrame, Call::kSendLocal, kShort, "partial sends are not retried"},
    };
    return table;
}

}  // namespace

bool isAccepted(const std::string& outcome, Call call, Effect effect) {
    const auto& table = acceptedOutcomes();
    return std::any_of(table.begin(), table.end(), [&](const Accepted& accepted) {
        return outcome == accepted.outcome && call == accepted.call &&
               (accepted.effect == kAny || accepted.effect == effect);
    });
}

}  // namespace wpp_torture
