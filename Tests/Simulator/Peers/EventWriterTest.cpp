#include "Simulator/private/Peers/EventWriter.h"

#include <gtest/gtest.h>

#include <sstream>

#include "Simulator/private/Io/Clock.h"

namespace simulator {
namespace {

TEST(EventWriter, WritesOneObjectALineWithNameAndTimeFirst) {
    std::ostringstream text;
    EventWriter(text).report("arrived", {{"btDeviceId", 3}});
    const std::string line = text.str();
    EXPECT_EQ(line.rfind("{\"event\":\"arrived\",\"time\":", 0), 0u);
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_EQ(Json::parse(line)["btDeviceId"], 3);
}

TEST(EventWriter, TimeIsThatOfTheMonotonicClock) {
    std::ostringstream text;
    const double before = monotonicSeconds();
    EventWriter(text).report("now");
    const double time = Json::parse(text.str())["time"].get<double>();
    EXPECT_GE(time, before);
    EXPECT_LE(time, monotonicSeconds());
}

TEST(EventWriter, BytesThatAreNoTextDoNotStopIt) {
    std::ostringstream text;
    EventWriter(text).report("odd", {{"bytes", "\xff"}});
    EXPECT_EQ(Json::parse(text.str())["bytes"], "\xef\xbf\xbd");
}

}  // namespace
}  // namespace simulator
