#include "Tests/Torture/CallTally.h"

#include <cstdio>

namespace wpp_torture {

namespace {

using Json = nlohmann::json;

void printRow(const char* name, const std::string& effects, std::uint64_t sites, std::uint64_t injections,
              std::uint64_t findings) {
    std::printf("%-16s %7llu %11llu %9llu %9llu  %s\n", name, static_cast<unsigned long long>(sites),
                static_cast<unsigned long long>(injections),
                static_cast<unsigned long long>(injections - findings),
                static_cast<unsigned long long>(findings), effects.c_str());
}

std::string namesOf(const std::set<Effect>& effects) {
    std::string names;
    for (const Effect effect : effects) {
        names += (names.empty() ? "" : " ") + nameOf(effect);
    }
    return names;
}

}  // namespace

void CallTally::addInjection(Call call, Effect effect, const std::string& accepted, bool isFinding) {
    Row& row = rowOf(call);
    row.effects.insert(effect);
    ++row.injections;
    row.findings += isFinding ? 1 : 0;
    if (!accepted.empty()) {
        ++outcomes[accepted];
    }
}

CallTally& CallTally::operator+=(const CallTally& other) {
    for (std::size_t i = 0; i < kCallCount; ++i) {
        const Row& from = other.rows[i];
        rows[i].sites.insert(from.sites.begin(), from.sites.end());
        rows[i].effects.insert(from.effects.begin(), from.effects.end());
        rows[i].injections += from.injections;
        rows[i].findings += from.findings;
    }
    for (const auto& [outcome, count] : other.outcomes) {
        outcomes[outcome] += count;
    }
    return *this;
}

Json CallTally::toJson() const {
    Json list = Json::array();
    for (const Row& row : rows) {
        list.push_back({{"sites", row.sites},
                        {"effects", row.effects},
                        {"injections", row.injections},
                        {"findings", row.findings}});
    }
    return {{"rows", list}, {"outcomes", outcomes}};
}

CallTally CallTally::fromJson(const Json& json) {
    CallTally tally;
    for (std::size_t i = 0; i < kCallCount; ++i) {
        const Json& row = json.at("rows").at(i);
        tally.rows[i] = {row.at("sites").get<std::set<std::uint64_t>>(),
                         row.at("effects").get<std::set<Effect>>(), row.at("injections").get<std::uint64_t>(),
                         row.at("findings").get<std::uint64_t>()};
    }
    tally.outcomes = json.at("outcomes").get<std::map<std::string, std::uint64_t>>();
    return tally;
}

void CallTally::print() const {
    std::printf("%-16s %7s %11s %9s %9s  %s\n", "call", "stacks", "injections", "survived", "findings",
                "injected");
    std::uint64_t sites = 0;
    for (std::size_t i = 0; i < kCallCount; ++i) {
        const Row& row = rows[i];
        printRow(callTable()[i].name, namesOf(row.effects), row.sites.size(), row.injections, row.findings);
        sites += row.sites.size();
    }
    printRow("all", "", sites, injections(), findings());
    for (const auto& [outcome, count] : outcomes) {
        std::printf("# accepted: %s: %llu\n", outcome.c_str(), static_cast<unsigned long long>(count));
    }
}

std::uint64_t CallTally::injections() const {
    std::uint64_t sum = 0;
    for (const Row& row : rows) {
        sum += row.injections;
    }
    return sum;
}

std::uint64_t CallTally::findings() const {
    std::uint64_t sum = 0;
    for (const Row& row : rows) {
        sum += row.findings;
    }
    return sum;
}

}  // namespace wpp_torture
