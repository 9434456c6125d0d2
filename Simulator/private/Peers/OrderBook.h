#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "Simulator/private/Peers/EventWriter.h"

namespace simulator {

/// The orders that a peer obeys: JSON objects, one a line, each with the field "order" naming one of a table.
///
/// An order that is no JSON object, is not in the table or cannot be carried out is reported as
/// "order-refused" with the reason and changes nothing else.
class OrderBook {
public:
    using Handler = std::function<void(const Json& order)>;
    using Table = std::map<std::string, Handler>;

    OrderBook(EventWriter& eventWriter, Table orderTable)
        : events(eventWriter), table(std::move(orderTable)) {}

    void obey(std::string_view line);

private:
    void carryOut(const Json& order);

    EventWriter& events;
    const Table table;
};

}  // namespace simulator
