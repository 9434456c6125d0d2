#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace wpp_torture {

/// The system calls that are made to fail, by what they are made on.
enum class Call : std::uint32_t {
    kSocketLocal,
    kSocketTcp,
    kBindLocal,
    kBindTcp,
    kListenLocal,
    kListenTcp,
    kAcceptLocal,
    kAcceptTcp,
    kConnectLocal,
    kPoll,
    kPause,  ///< poll of nothing, which only lets the time pass
    kEpollCreate,
    kEpollAdd,
    kEpollDelete,
    kEpollWait,
    kEventFd,
    kPipe,
    kReadPipe,
    kWritePipe,
    kSendLocal,
    kSendTcp,
    kRecvLocal,
    kRecvTcp,
    kFcntl,
    kThread,
    kSemOpen,
    kSemWait,
    kSemTimedWait,
    kCount
};

constexpr std::size_t kCallCount = static_cast<std::size_t>(Call::kCount);

/// What an injected call does in place of the real one: fail with this errno, or transfer half of the bytes.
using Effect = int;
constexpr Effect kShort = 0;

/// What a call's manual page lists as possible for it here.
struct CallErrors {
    Call call;
    const char* name;
    std::vector<Effect> effects;
    const char* left;  ///< what the page lists beside that, and why it cannot be met here
};

/// One entry for each call, in the order of the enumeration.
const std::vector<CallErrors>& callTable();

const CallErrors& errorsOf(Call call);

/// "EINTR", "short" and so on.
std::string nameOf(Effect effect);

/// @return the effect of this name. @throws std::invalid_argument
Effect effectOf(const std::string& name);

/// @return the call of this name. @throws std::invalid_argument
Call callOf(const std::string& name);

/// Whether the real call tried again would succeed: from there on, every other call meets it.
bool isTransient(Effect effect);

}  // namespace wpp_torture
