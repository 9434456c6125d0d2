#include "Simulator/private/Road/Scenario.h"

#include <gtest/gtest.h>

namespace simulator {
namespace {

/// Why a scenario is refused; empty when it is not.
std::string refusalOf(const std::string& text) {
    try {
        Scenario::parse(text);
    } catch (const JsonError& error) {
        return error.what();
    }
    return {};
}

TEST(Scenario, EmptyOneIsTheOrdinaryOne) {
    const Scenario scenario = Scenario::parse("{}");
    const Scenario ordinary = Scenario::ordinary();
    EXPECT_EQ(scenario.phones, 1);
    EXPECT_EQ(scenario.tls, TlsSource::kConfigured);
    EXPECT_EQ(scenario.limit, ordinary.limit);
    EXPECT_EQ(scenario.wifi, ordinary.wifi);
    EXPECT_TRUE(scenario.course.empty());
}

TEST(Scenario, TakesItsOwnValuesAndKeepsTheOthers) {
    const Scenario scenario =
        Scenario::parse(R"({"phones":3,"tls":"requested","limit_ms":500,"wifi":{"wifiInfo1":"mine"},)"
                        R"("port":{"port":1},"protocol":{"channelType":9}})");
    EXPECT_EQ(scenario.phones, 3);
    EXPECT_EQ(scenario.tls, TlsSource::kRequested);
    EXPECT_EQ(scenario.limit, Milliseconds(500));
    EXPECT_EQ(scenario.wifi["wifiInfo1"], "mine");
    EXPECT_EQ(scenario.wifi["wifiInfo2"], Scenario::ordinary().wifi["wifiInfo2"]);
    EXPECT_EQ(scenario.projectionPort["port"], 1);
    EXPECT_EQ(scenario.protocol["channelType"], 9);
}

TEST(Scenario, CourseMixesTheRoadsStagesWithItsOwn) {
    const Scenario scenario = Scenario::parse(R"({"course":["process up",
        {"stage":"mine","orders":[{"to":"phone 1","order":"ready"}],
         "expect":[{"from":"receiver","event":"log","where":{"a":1},"contains":{"line":"x"},"within_ms":70}]}]})");
    ASSERT_EQ(scenario.course.size(), 2u);
    EXPECT_TRUE(scenario.course[0].isBuiltIn);
    const ScenarioStage& own = scenario.course[1];
    EXPECT_FALSE(own.isBuiltIn);
    EXPECT_EQ(own.name, "mine");
    ASSERT_EQ(own.orders.size(), 1u);
    EXPECT_EQ(own.orders[0].to, "phone 1");
    EXPECT_EQ(own.orders[0].order, (Json{{"order", "ready"}}));
    ASSERT_EQ(own.expectations.size(), 1u);
    EXPECT_EQ(own.expectations[0].from, "receiver");
    EXPECT_EQ(own.expectations[0].event, "log");
    EXPECT_EQ(own.expectations[0].where, (Json{{"a", 1}}));
    EXPECT_EQ(own.expectations[0].contains, (Json{{"line", "x"}}));
    EXPECT_EQ(own.expectations[0].within, Milliseconds(70));
}

TEST(Scenario, UnknownStageOfTheRoadIsNamed) {
    EXPECT_EQ(refusalOf(R"({"course":["take-off"]})"), "the road has no stage \"take-off\"");
}

TEST(Scenario, UnknownFieldsAreNamed) {
    EXPECT_EQ(refusalOf(R"({"fones":2})"), "unknown field \"fones\" in the scenario");
    EXPECT_EQ(refusalOf(R"({"course":[{"stage":"s","order":[]}]})"), "unknown field \"order\" in a stage");
    EXPECT_EQ(refusalOf(R"({"course":[{"stage":"s","expect":[{"form":"x"}]}]})"),
              "unknown field \"form\" in an expectation of stage \"s\"");
}

TEST(Scenario, MissingFieldsAreNamed) {
    EXPECT_EQ(refusalOf(R"({"course":[{"orders":[]}]})"), "\"stage\" is missing in a stage");
    EXPECT_EQ(refusalOf(R"({"course":[{"stage":"s","orders":[{"order":"x"}]}]})"),
              "\"to\" is missing in stage \"s\"");
    EXPECT_EQ(refusalOf(R"({"course":[{"stage":"s","orders":[{"to":"x"}]}]})"),
              "\"order\" is missing in stage \"s\"");
    EXPECT_EQ(refusalOf(R"({"course":[{"stage":"s","expect":[{"from":"x"}]}]})"),
              "\"event\" is missing in stage \"s\"");
}

TEST(Scenario, ValuesOfTheWrongKindAreRefused) {
    EXPECT_EQ(refusalOf(R"({"phones":255})"), "\"phones\" is out of range");
    EXPECT_EQ(refusalOf(R"({"phones":"2"})"), "\"phones\" has to be a whole number");
    EXPECT_EQ(refusalOf(R"({"tls":"maybe"})"), "\"tls\" is none of configured, requested");
    EXPECT_EQ(refusalOf(R"({"wifi":[]})"), "\"wifi\" has to be an object");
    EXPECT_EQ(refusalOf(R"({"course":{}})"), "\"course\" has to be a list");
    EXPECT_EQ(refusalOf("[]"), "the scenario has to be an object");
}

TEST(Scenario, TextThatIsNoJsonIsRefused) {
    EXPECT_NE(refusalOf("{"), "");
}

}  // namespace
}  // namespace simulator
