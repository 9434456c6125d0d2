#include "Simulator/private/Torture/KillPoint.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "Simulator/private/Road/RoadStages.h"

namespace simulator {
namespace {

std::string refusalOf(const std::string& text) {
    try {
        parseKillPoints(text);
    } catch (const JsonError& error) {
        return error.what();
    }
    return {};
}

std::vector<KillPoint> allPoints() {
    return parseKillPoints(readFile(KILL_POINTS));
}

TEST(KillPoint, HasItsStepsAndWhatComesOfThem) {
    const std::vector<KillPoint> points = parseKillPoints(
        R"({"points":[{"point":"p","victim":"controller","through":"ready",
            "under_way":[{"orders":[{"to":"phone 1","order":"ready"}]},
                         {"expect":[{"from":"controller","event":"notification"}]}],
            "after":[{"from":"receiver","event":"log"}],
            "then":{"orders":[{"to":"controller","order":"end"}],"expect":[{"from":"phone 1","event":"start"}]},
            "told":[{"from":"bluetooth","event":"phone-gone"}],
            "never":[{"from":"phone 1","event":"tcp-closed"}],
            "stopped":[{"from":"phone 1","event":"rfcomm-closed"}]}]})");
    ASSERT_EQ(points.size(), 1u);
    const KillPoint& point = points.front();
    EXPECT_EQ(point.name, "p");
    EXPECT_EQ(point.victim, "controller");
    EXPECT_EQ(point.through, "ready");
    ASSERT_EQ(point.underWay.size(), 2u);
    EXPECT_EQ(point.underWay[0].orders.front().to, "phone 1");
    EXPECT_EQ(point.underWay[1].expectations.front().event, "notification");
    EXPECT_EQ(point.after.front().event, "log");
    EXPECT_EQ(point.then.orders.front().to, "controller");
    EXPECT_EQ(point.then.expectations.front().event, "start");
    EXPECT_EQ(point.told.front().event, "phone-gone");
    EXPECT_EQ(point.never.front().event, "tcp-closed");
    EXPECT_EQ(point.stopped.front().event, "rfcomm-closed");
}

TEST(KillPoint, RefusesWhatItDoesNotUnderstand) {
    EXPECT_NE(refusalOf("no JSON"), "");
    EXPECT_EQ(refusalOf(R"({"points":[{"point":"p","through":"ready"}]})"),
              "\"victim\" is missing in point \"p\"");
    EXPECT_EQ(refusalOf(R"({"points":[{"point":"p","victim":"controller","through":"snow"}]})"),
              "the road has no stage \"snow\"");
    EXPECT_EQ(refusalOf(R"({"points":[{"point":"p","victim":"controller","through":"ready","snow":1}]})"),
              "unknown field \"snow\" in a point");
    EXPECT_EQ(refusalOf(R"({"points":[{"point":"p","victim":"controller","through":"ready"},
                                      {"point":"p","victim":"bluetooth","through":"ready"}]})"),
              "there are two points \"p\"");
}

TEST(KillPoint, TheListHoldsEveryVictimAtEveryStage) {
    std::map<std::string, std::set<std::string>> stages;
    for (const KillPoint& point : allPoints()) {
        if (point.name.find(" after " + point.through) != std::string::npos) {
            stages[point.victim].insert(point.through);
        }
    }
    std::set<std::string> road;
    for (const std::string& stage : wholeRoad(TlsSource::kRequested)) {
        if (stage != "terminate") {
            road.insert(stage);
        }
    }
    for (const char* const victim : {"controller", "bluetooth", "phone 1"}) {
        EXPECT_EQ(stages[victim], road) << victim;
    }
}

TEST(KillPoint, EveryPointOfTheListSaysWhatIsReported) {
    const std::vector<KillPoint> points = allPoints();
    EXPECT_GE(points.size(), 60u);
    for (const KillPoint& point : points) {
        EXPECT_FALSE(point.after.empty() && point.then.expectations.empty()) << point.name;
    }
}

}  // namespace
}  // namespace simulator
