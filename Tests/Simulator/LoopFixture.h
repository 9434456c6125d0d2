#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Simulator/private/Io/LineSplitter.h"
#include "Simulator/private/Io/PollLoop.h"
#include "Simulator/private/Peers/EventWriter.h"
#include "Tests/Support/Deadline.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace simulator {

/// A poll loop in a working directory of its own, and the events that peers report.
class LoopTest : public testing::Test {
protected:
    LoopTest() { directory.enter(); }

    /// Steps the loop until the predicate holds; it is not asked again then. @return whether it does.
    bool stepUntil(const std::function<bool()>& predicate) {
        const wpp_test::Deadline deadline;
        bool holds = predicate();
        while (!holds && !deadline.passed()) {
            loop.step(Milliseconds(100));
            holds = predicate();
        }
        return holds;
    }

    /// The events reported so far under this name that have these details.
    std::vector<Json> eventsNamed(const std::string& name, const Json& where = Json::object()) const {
        std::vector<Json> found;
        LineSplitter lines;
        for (const std::string& line : lines.feed(eventText.str())) {
            const Json event = Json::parse(line);
            if (event["event"] == name && contains(event, where)) {
                found.push_back(event);
            }
        }
        return found;
    }

    bool awaitEvent(const std::string& name, const Json& where = Json::object(), std::size_t count = 1) {
        return stepUntil([&] { return eventsNamed(name, where).size() >= count; });
    }

    static bool contains(const Json& event, const Json& where) {
        for (const auto& [key, value] : where.items()) {
            if (!event.contains(key) || event[key] != value) {
                return false;
            }
        }
        return true;
    }

    wpp_test::TemporaryDirectory directory;
    std::ostringstream eventText;
    EventWriter events{eventText};
    PollLoop loop;
};

}  // namespace simulator
