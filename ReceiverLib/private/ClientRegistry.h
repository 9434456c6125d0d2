#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "private/PhoneLink.h"
#include "wifi_projection_protocol/ClientInfo.h"

namespace wifi_projection_protocol {

/// Which links there are, by name, and which phones are on them, by client id. Calls nobody but
/// PhoneLink::name() and type(), so its lock is never held while somebody else's code runs. Any thread.
///
/// A link is added with its name, joins a client with the phone's Hello, and is taken out once: by name, by
/// another link of the same name, by another link of the same client and type, or at its own end.
///
/// A client is lost when it loses its TCP link, or its last link if it has had no TCP link since its last
/// Hello; once for each such Hello at most. The loss waits for the lost link's own thread to report it, and
/// until it has, no new link joins that client: so a phone's arrival is never reported ahead of its previous
/// loss.
///
/// Only add, join and the look-ups take memory, and they change nothing when there is none: what a link's end
/// needs is laid in when it joins, so that a phone is let go of whatever the state of the heap.
class ClientRegistry {
public:
    using Link = std::shared_ptr<PhoneLink>;

    /// @param linkLimit most links at a time.
    /// @param strangerLimit most TCP links at a time that have joined no client; as many as fit in if left out.
    explicit ClientRegistry(std::size_t linkLimit,
                            std::size_t strangerLimit = std::numeric_limits<std::size_t>::max())
        : maxLinks(linkLimit), maxStrangers(strangerLimit) {}

    /// Adds a link. @param replaced gets the link that had its name; it is out already and to be dropped.
    /// @return false when stopped or full.
    bool add(const Link& link, Link& replaced);

    /// Makes room for a link of this type, if there is none, by taking out the TCP link that has been without
    /// a client for longest. @return it, to be dropped; empty when there is room, or nothing to take out.
    Link makeRoom(TransportType type);

    /// Takes out the link of this name. @return it, to be dropped; empty when there is none.
    Link take(const std::string& name);

    /// Takes out this link if it is still in.
    void remove(const PhoneLink& link);

    /// The phone on this link has said that it is `client`. Waits until an earlier loss of it is reported.
    /// @param replaced gets the client's former link of the same type; it is out already and to be dropped.
    /// @return false when the link is out or all is stopped.
    bool join(const PhoneLink& link, const ClientInfo& client, Link& replaced);

    /// Has this client an RFCOMM link?
    bool isOnRfcomm(const std::string& clientId) const;

    /// @return the client with its present links; empty when it has none.
    std::optional<ClientInfo> find(const std::string& clientId) const;

    /// @return the client's TCP link; empty when it has none.
    Link tcpLinkOf(const std::string& clientId) const;

    /// @return the client that was lost with this link, with the links that it had until then; empty when
    ///         none was, or when stopped. It is given out once; after reporting it, call lossReported.
    std::optional<ClientInfo> takeLoss(const PhoneLink& link);
    void lossReported(const std::string& clientId);

    /// Nothing is added, joined or lost any more.
    void stop();

    /// Takes out any link. @return it, to be dropped; empty when none is left.
    Link takeAny();

private:
    using Losses = std::map<const PhoneLink*, ClientInfo>;
    struct Member {
        Link link;
        std::string clientId;       // empty before Hello
        std::uint64_t arrival = 0;  // counts up
        Losses::node_type loss;     // the client as of the last Hello, should it be lost with this link
    };
    using Members = std::map<std::string, Member>;
    struct Client {
        ClientInfo info;
        bool lossDue = false;
        unsigned lossesInReport = 0;
    };

    static Members::node_type makeMember(const Link& link);
    static Losses::node_type makeLoss(const Link& link, const ClientInfo& info);
    Member* findMember(const PhoneLink& link);
    std::map<Member*, Losses::node_type> makeLosses(const ClientInfo& info);
    Link takeOut(const std::string& name);
    void leave(Client& client, Member& member);
    void forgetIfGone(const std::string& clientId);

    const std::size_t maxLinks;
    const std::size_t maxStrangers;

    mutable std::mutex mutex;
    std::condition_variable changed;  // of lossesInReport and stopped
    // Guarded by mutex.
    Members members;
    std::map<std::string, Client> clients;
    Losses losses;
    std::uint64_t arrivals = 0;
    bool stopped = false;
};

}  // namespace wifi_projection_protocol
