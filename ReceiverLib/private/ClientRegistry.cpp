#include "private/ClientRegistry.h"

#include <iterator>
#include <utility>

namespace wifi_projection_protocol {

using Guard = std::lock_guard<std::mutex>;

bool ClientRegistry::add(const Link& link, Link& replaced) {
    Members::node_type member = makeMember(link);
    const Guard guard(mutex);
    replaced = takeOut(link->name());
    if (stopped || members.size() >= maxLinks) {
        return false;
    }
    member.mapped().arrival = ++arrivals;
    members.insert(std::move(member));
    return true;
}

ClientRegistry::Link ClientRegistry::makeRoom(TransportType type) {
    const Guard guard(mutex);
    std::size_t strangers = 0;
    const Member* oldest = nullptr;
    for (const auto& [name, member] : members) {
        if (member.clientId.empty() && member.link->type() == TransportType::kTcp) {
            ++strangers;
            oldest = oldest == nullptr || member.arrival < oldest->arrival ? &member : oldest;
        }
    }
    const bool isFull =
        members.size() >= maxLinks || (type == TransportType::kTcp && strangers >= maxStrangers);
    return isFull && oldest != nullptr ? takeOut(oldest->link->name()) : nullptr;
}

ClientRegistry::Link ClientRegistry::take(const std::string& name) {
    const Guard guard(mutex);
    return takeOut(name);
}

void ClientRegistry::remove(const PhoneLink& link) {
    const Guard guard(mutex);
    if (findMember(link) != nullptr) {
        takeOut(link.name());
    }
}

bool ClientRegistry::join(const PhoneLink& link, const ClientInfo& client, Link& replaced) {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] {
        const auto former = clients.find(client.clientId);
        return stopped || former == clients.end() || former->second.lossesInReport == 0;
    });
    if (stopped || findMember(link) == nullptr) {
        return false;
    }
    const auto [known, isNew] = clients.try_emplace(client.clientId);
    try {
        Client& joined = known->second;
        ClientInfo renewed = client;
        renewed.transports = joined.info.transports;
        std::string& place = renewed.transports[link.type()];
        const std::string former = std::exchange(place, link.name());
        std::map<Member*, Losses::node_type> newLosses = makeLosses(renewed);
        std::string clientId = client.clientId;
        // From here on nothing takes memory.
        if (const Members::node_type left = members.extract(former); !left.empty()) {
            replaced = left.mapped().link;
        }
        joined.info = std::move(renewed);
        joined.lossDue = true;
        findMember(link)->clientId = std::move(clientId);
        for (auto& [member, loss] : newLosses) {
            member->loss = std::move(loss);
        }
        return true;
    } catch (...) {
        if (isNew) {
            clients.erase(known);
        }
        throw;
    }
}

bool ClientRegistry::isOnRfcomm(const std::string& clientId) const {
    const Guard guard(mutex);
    const auto client = clients.find(clientId);
    return client != clients.end() && client->second.info.transports.count(TransportType::kRfcomm) != 0;
}

std::optional<ClientInfo> ClientRegistry::find(const std::string& clientId) const {
    const Guard guard(mutex);
    const auto client = clients.find(clientId);
    if (client == clients.end() || client->second.info.transports.empty()) {
        return std::nullopt;
    }
    return client->second.info;
}

ClientRegistry::Link ClientRegistry::tcpLinkOf(const std::string& clientId) const {
    const Guard guard(mutex);
    const auto client = clients.find(clientId);
    if (client == clients.end()) {
        return nullptr;
    }
    const auto transport = client->second.info.transports.find(TransportType::kTcp);
    return transport == client->second.info.transports.end() ? nullptr : members.at(transport->second).link;
}

std::optional<ClientInfo> ClientRegistry::takeLoss(const PhoneLink& link) {
    const Guard guard(mutex);
    const auto loss = losses.extract(&link);
    if (loss.empty() || stopped) {
        return std::nullopt;
    }
    return std::move(loss.mapped());
}

void ClientRegistry::lossReported(const std::string& clientId) {
    const Guard guard(mutex);
    --clients.at(clientId).lossesInReport;
    forgetIfGone(clientId);
    changed.notify_all();
}

void ClientRegistry::stop() {
    const Guard guard(mutex);
    stopped = true;
    changed.notify_all();
}

ClientRegistry::Link ClientRegistry::takeAny() {
    const Guard guard(mutex);
    return members.empty() ? nullptr : takeOut(members.begin()->first);
}

ClientRegistry::Members::node_type ClientRegistry::makeMember(const Link& link) {
    Members one;
    return one.extract(one.try_emplace(link->name(), Member{link, {}, 0, {}}).first);
}

ClientRegistry::Losses::node_type ClientRegistry::makeLoss(const Link& link, const ClientInfo& info) {
    Losses one;
    return one.extract(one.try_emplace(link.get(), info).first);
}

/// What the client's links need, each, should the client be lost with them.
std::map<ClientRegistry::Member*, ClientRegistry::Losses::node_type> ClientRegistry::makeLosses(
    const ClientInfo& info) {
    std::map<Member*, Losses::node_type> made;
    for (const auto& [type, name] : info.transports) {
        Member& member = members.at(name);
        made[&member] = makeLoss(member.link, info);
    }
    return made;
}

ClientRegistry::Member* ClientRegistry::findMember(const PhoneLink& link) {
    const auto member = members.find(link.name());
    return member != members.end() && member->second.link.get() == &link ? &member->second : nullptr;
}

ClientRegistry::Link ClientRegistry::takeOut(const std::string& name) {
    Members::node_type node = members.extract(name);
    if (node.empty()) {
        return nullptr;
    }
    Member& member = node.mapped();
    const auto client = clients.find(member.clientId);
    if (client != clients.end()) {
        leave(client->second, member);
        forgetIfGone(member.clientId);
    }
    return member.link;
}

void ClientRegistry::leave(Client& client, Member& member) {
    TransportNames& transports = client.info.transports;
    TransportNames& lostTransports = member.loss.mapped().transports;
    for (auto lost = lostTransports.begin(); lost != lostTransports.end();) {
        lost = transports.count(lost->first) == 0 ? lostTransports.erase(lost) : std::next(lost);
    }
    transports.erase(member.link->type());
    const bool isLoss = member.link->type() == TransportType::kTcp || transports.empty();
    if (isLoss && client.lossDue && !stopped) {
        client.lossDue = false;
        ++client.lossesInReport;
        losses.insert(std::move(member.loss));
    }
}

void ClientRegistry::forgetIfGone(const std::string& clientId) {
    const auto client = clients.find(clientId);
    if (client->second.info.transports.empty() && client->second.lossesInReport == 0) {
        clients.erase(client);
    }
}

}  // namespace wifi_projection_protocol
