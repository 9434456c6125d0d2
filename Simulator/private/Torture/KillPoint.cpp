#include "Simulator/private/Torture/KillPoint.h"

#include <array>
#include <set>

#include "Simulator/private/Road/RoadStages.h"

namespace simulator {

namespace {

std::vector<Expectation> expectationsOf(const Json& item, const char* name, const std::string& where) {
    std::vector<Expectation> expectations;
    for (const Json& expectation : listField(item, name)) {
        expectations.push_back(parseExpectation(expectation, where));
    }
    return expectations;
}

KillPhase parsePhase(const Json& item, const std::string& where) {
    static constexpr std::array<const char*, 2> kFields{"orders", "expect"};
    allowOnly(item, kFields, where);
    KillPhase phase{{}, expectationsOf(item, "expect", where)};
    for (const Json& order : listField(item, "orders")) {
        phase.orders.push_back(parseOrder(order, where));
    }
    return phase;
}

KillPoint parsePoint(const Json& item) {
    static constexpr std::array<const char*, 9> kFields{"point", "victim", "through", "under_way", "after",
                                                        "then",  "told",   "never",   "stopped"};
    allowOnly(item, kFields, "a point");
    KillPoint point;
    point.name = requiredText(item, "point", "a point");
    const std::string where = "point \"" + point.name + "\"";
    point.victim = requiredText(item, "victim", where);
    point.through = requiredText(item, "through", where);
    if (findRoadStage(point.through) == nullptr) {
        throw JsonError("the road has no stage \"" + point.through + "\"");
    }
    for (const Json& phase : listField(item, "under_way")) {
        point.underWay.push_back(parsePhase(phase, where));
    }
    point.after = expectationsOf(item, "after", where);
    if (item.contains("then")) {
        point.then = parsePhase(item["then"], where);
    }
    point.told = expectationsOf(item, "told", where);
    point.never = expectationsOf(item, "never", where);
    point.stopped = expectationsOf(item, "stopped", where);
    return point;
}

}  // namespace

std::vector<KillPoint> parseKillPoints(const std::string& text) {
    static constexpr std::array<const char*, 2> kFields{"comment", "points"};
    const Json object = parseJson(text);
    allowOnly(object, kFields, "the points");
    std::vector<KillPoint> points;
    std::set<std::string> names;
    for (const Json& item : listField(object, "points")) {
        points.push_back(parsePoint(item));
        if (!names.insert(points.back().name).second) {
            throw JsonError("there are two points \"" + points.back().name + "\"");
        }
    }
    return points;
}

}  // namespace simulator
