#pragma once

#include <array>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "Tests/Torture/CallTable.h"

namespace wpp_torture {

/// What injections into system calls came to, call by call.
class CallTally {
public:
    /// A call site of one of the tortured programs.
    void addSite(Call call, std::uint64_t stack) { rowOf(call).sites.insert(stack); }
    void addInjection(Call call, Effect effect, const std::string& accepted, bool isFinding);

    CallTally& operator+=(const CallTally& other);

    nlohmann::json toJson() const;
    static CallTally fromJson(const nlohmann::json& json);

    /// Prints a row for each call, their sum, and how often an injection had an outcome that is accepted.
    void print() const;

    std::uint64_t injections() const;
    std::uint64_t findings() const;

private:
    struct Row {
        std::set<std::uint64_t> sites;
        std::set<Effect> effects;
        std::uint64_t injections = 0;
        std::uint64_t findings = 0;
    };

    Row& rowOf(Call call) { return rows[static_cast<std::size_t>(call)]; }

    std::array<Row, kCallCount> rows;
    std::map<std::string, std::uint64_t> outcomes;  // accepted ones
};

}  // namespace wpp_torture
