#include "Simulator/private/Road/Scenario.h"

#include <array>

#include "Simulator/private/Road/RoadStages.h"

namespace simulator {

namespace {

constexpr std::int64_t kLongestLimitMs = 600000;

Json objectField(const Json& object, const char* name, const Json& fallback) {
    const auto found = object.find(name);
    if (found == object.end()) {
        return fallback;
    }
    if (!found->is_object()) {
        throw JsonError("\"" + std::string(name) + "\" has to be an object");
    }
    Json merged = fallback;
    merged.update(*found);
    return merged;
}

}  // namespace

ScenarioOrder parseOrder(const Json& object, const std::string& where) {
    ScenarioOrder order{requiredText(object, "to", where), object};
    requiredText(object, "order", where);
    order.order.erase("to");
    return order;
}

Expectation parseExpectation(const Json& object, const std::string& where) {
    static constexpr std::array<const char*, 5> kFields{"from", "event", "where", "contains", "within_ms"};
    allowOnly(object, kFields, "an expectation of " + where);
    return {requiredText(object, "from", where), requiredText(object, "event", where),
            objectField(object, "where", Json::object()), objectField(object, "contains", Json::object()),
            Milliseconds(numberField(object, "within_ms", 0, 0, kLongestLimitMs))};
}

namespace {

ScenarioStage parseStage(const Json& item) {
    ScenarioStage stage;
    if (item.is_string()) {
        stage.name = item.get<std::string>();
        stage.isBuiltIn = true;
        if (findRoadStage(stage.name) == nullptr) {
            throw JsonError("the road has no stage \"" + stage.name + "\"");
        }
        return stage;
    }
    static constexpr std::array<const char*, 3> kFields{"stage", "orders", "expect"};
    allowOnly(item, kFields, "a stage");
    stage.name = requiredText(item, "stage", "a stage");
    const std::string where = "stage \"" + stage.name + "\"";
    for (const Json& order : listField(item, "orders")) {
        stage.orders.push_back(parseOrder(order, where));
    }
    for (const Json& expectation : listField(item, "expect")) {
        stage.expectations.push_back(parseExpectation(expectation, where));
    }
    return stage;
}

}  // namespace

Scenario Scenario::ordinary() {
    Scenario scenario;
    scenario.protocol = {
        {"channelType", 1},
        {"channelList", {36, 40, 44, 48}},
        {"headUnitInfo", {"Maker", "Model", "2024", "0001", "HU maker", "HU model", "1", "1.0"}}};
    scenario.projectionPort = {{"ipAddress", "127.0.0.1"}, {"port", 30516}};
    scenario.wifi = {{"wifiInfo1", "head-unit"},
                     {"wifiInfo2", "passphrase"},
                     {"wifiInfo3", "02:00:00:00:00:01"},
                     {"wifiInfo4", 8}};
    return scenario;
}

Scenario Scenario::parse(const std::string& text) {
    static constexpr std::array<const char*, 9> kFields{"comment",  "phones", "rounds", "tls",   "limit_ms",
                                                        "protocol", "port",   "wifi",   "course"};
    const Json object = parseJson(text);
    allowOnly(object, kFields, "the scenario");
    Scenario scenario = ordinary();
    scenario.phones = static_cast<int>(numberField(object, "phones", 1, 1, kMostPhones));
    scenario.rounds = static_cast<int>(numberField(object, "rounds", 1, 1, kMostRounds));
    scenario.tls = tlsSourceOf(textField(object, "tls", "configured"));
    scenario.limit =
        Milliseconds(numberField(object, "limit_ms", scenario.limit.count(), 1, kLongestLimitMs));
    scenario.protocol = objectField(object, "protocol", scenario.protocol);
    scenario.projectionPort = objectField(object, "port", scenario.projectionPort);
    scenario.wifi = objectField(object, "wifi", scenario.wifi);
    for (const Json& item : listField(object, "course")) {
        scenario.course.push_back(parseStage(item));
    }
    return scenario;
}

TlsSource tlsSourceOf(const std::string& text) {
    if (text == "configured") {
        return TlsSource::kConfigured;
    }
    if (text == "requested") {
        return TlsSource::kRequested;
    }
    throw JsonError("\"tls\" is none of configured, requested");
}

}  // namespace simulator
