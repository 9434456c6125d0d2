#include "Simulator/private/Road/PeerEvent.h"

#include <gtest/gtest.h>

namespace simulator {
namespace {

PeerEvent eventOf(const Json& details) {
    return {"arrived", 1.0, details};
}

Expectation expectation(const Json& where, const Json& contains = Json::object()) {
    return {"peer", "arrived", where, contains, Milliseconds(0)};
}

TEST(PeerEvent, IsReadFromALine) {
    const PeerEvent event = readEvent(R"({"event":"arrived","time":12.5,"btDeviceId":3})");
    EXPECT_EQ(event.name, "arrived");
    EXPECT_EQ(event.time, 12.5);
    EXPECT_EQ(event.details["btDeviceId"], 3);
}

TEST(PeerEvent, LineThatIsNoEventIsALogLineOfThisMoment) {
    const double before = monotonicSeconds();
    for (const char* const line : {"[error] poll: timeout", "{\"event\":\"arrived\"}", "{\"time\":1}",
                                   "{\"event\":1,\"time\":1}", ""}) {
        const PeerEvent event = readEvent(line);
        EXPECT_EQ(event.name, "log");
        EXPECT_EQ(event.details["line"], line);
        EXPECT_GE(event.time, before);
    }
}

TEST(Expectation, MatchesWhenAllDetailsAreEqual) {
    EXPECT_TRUE(expectation({{"a", 1}}).matches(eventOf({{"a", 1}, {"b", 2}})));
    EXPECT_FALSE(expectation({{"a", 1}, {"b", 3}}).matches(eventOf({{"a", 1}, {"b", 2}})));
    EXPECT_FALSE(expectation({{"c", 1}}).matches(eventOf({{"a", 1}})));
}

TEST(Expectation, MatchesTextsThatContainAnother) {
    EXPECT_TRUE(expectation(Json::object(), {{"line", "out"}}).matches(eventOf({{"line", "timeout."}})));
    EXPECT_FALSE(expectation(Json::object(), {{"line", "in"}}).matches(eventOf({{"line", "timeout."}})));
    EXPECT_FALSE(expectation(Json::object(), {{"line", "1"}}).matches(eventOf({{"line", 1}})));
    EXPECT_FALSE(expectation(Json::object(), {{"line", "1"}}).matches(eventOf(Json::object())));
}

TEST(Expectation, DoesNotMatchAnotherEvent) {
    EXPECT_FALSE(expectation(Json::object()).matches({"left", 1.0, Json::object()}));
}

TEST(Expectation, DescribesWhatIsWaitedFor) {
    EXPECT_EQ(expectation({{"a", 1}}, {{"line", "x"}}).describe(),
              "\"arrived\" {\"a\":1} containing {\"line\":\"x\"} from peer");
    EXPECT_EQ(expectation(Json::object()).describe(), "\"arrived\" from peer");
}

}  // namespace
}  // namespace simulator
