#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace wpp_test {

/// The receiver's four streams.
enum class Link { kControlServer, kControlClient, kBluetoothServer, kBluetoothClient };

/// What becomes of a peer in the middle of a frame. A local socket is reset when it is closed with unread data.
enum class Fault { kStall, kClose, kReset, kKilled };

constexpr Fault kFaults[] = {Fault::kStall, Fault::kClose, Fault::kReset, Fault::kKilled};

const char* nameOf(Link link);
const char* nameOf(Fault fault);

/// A message on its link, framed, and the frame that answers it; no answer for 1000.
struct FaultExchange {
    std::string message;
    Link link;
    std::string request;
    std::string reply;
};

/// One place at which a peer breaks off: so many bytes of this frame have gone over the link.
struct FaultPoint {
    const FaultExchange* exchange;
    bool isInReply;
    std::size_t offset;
    Fault fault;

    std::string text() const;
};

/// Every message of both links, from the golden messages; a link's in the order of the ids.
const std::vector<FaultExchange>& faultExchanges();

/// The names of the messages that a link's exchanges hold, in requests and replies.
std::set<std::string> messagesOf(Link link);

/// Every byte of every frame of a link, times every fault.
std::vector<FaultPoint> faultPointsOf(Link link);

/// The frame of a message's ordinary variant.
std::string goldenFrame(const std::string& message);

}  // namespace wpp_test
