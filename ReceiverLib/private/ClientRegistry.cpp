#include "private/ClientRegistry.h"

#include <utility>

namespace wifi_projection_protocol {

using Guard = std::lock_guard<std::mutex>;

bool ClientRegistry::add(const Link& link, Link& replaced) {
    const Guard guard(mutex);
    replaced = takeOut(link->name(), true);
    if (stopped || members.size() >= maxLinks) {
        return false;
    }
    members[link->name()] = Member{link, {}, ++arrivals};
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
    return isFull && oldest != nullptr ? takeOut(std::string(oldest->link->name()), true) : nullptr;
}

ClientRegistry::Link ClientRegistry::take(const std::string& name) {
    const Guard guard(mutex);
    return takeOut(name, true);
}

void ClientRegistry::remove(const PhoneLink& link) {
    const Guard guard(mutex);
    if (findMember(link) != nullptr) {
        takeOut(link.name(), true);
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
    Client& joined = clients[client.clientId];
    const auto former = joined.info.transports.find(link.type());
    if (former != joined.info.transports.end()) {
        replaced = takeOut(std::string(former->second), false);
    }
    Client& renewed = clients[client.clientId];
    TransportNames transports = std::move(renewed.info.transports);
    renewed.info = client;
    renewed.info.transports = std::move(transports);
    renewed.info.transports[link.type()] = link.name();
    renewed.lossDue = true;
    members[link.name()].clientId = client.clientId;
    return true;
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

std::vector<ClientRegistry::Link> ClientRegistry::stop() {
    const Guard guard(mutex);
    stopped = true;
    changed.notify_all();
    std::vector<Link> links;
    for (const auto& member : members) {
        links.push_back(member.second.link);
    }
    return links;
}

const ClientRegistry::Member* ClientRegistry::findMember(const PhoneLink& link) const {
    const auto member = members.find(link.name());
    return member != members.end() && member->second.link.get() == &link ? &member->second : nullptr;
}

ClientRegistry::Link ClientRegistry::takeOut(const std::string& name, bool countsAsLoss) {
    const auto node = members.extract(name);
    if (node.empty()) {
        return nullptr;
    }
    const Member& member = node.mapped();
    const auto client = clients.find(member.clientId);
    if (client != clients.end()) {
        leave(client->second, member, countsAsLoss);
        forgetIfGone(member.clientId);
    }
    return member.link;
}

void ClientRegistry::leave(Client& client, const Member& member, bool countsAsLoss) {
    const ClientInfo before = client.info;
    client.info.transports.erase(member.link->type());
    const bool isLoss = member.link->type() == TransportType::kTcp || client.info.transports.empty();
    if (isLoss && countsAsLoss && client.lossDue && !stopped) {
        client.lossDue = false;
        ++client.lossesInReport;
        losses[member.link.get()] = before;
    }
}

void ClientRegistry::forgetIfGone(const std::string& clientId) {
    const auto client = clients.find(clientId);
    if (client->second.info.transports.empty() && client->second.lossesInReport == 0) {
        clients.erase(client);
    }
}

}  // namespace wifi_projection_protocol
