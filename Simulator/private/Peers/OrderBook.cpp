#include "Simulator/private/Peers/OrderBook.h"

#include <exception>

namespace simulator {

void OrderBook::obey(std::string_view line) {
    if (line.find_first_not_of(" \t\r") == std::string_view::npos) {
        return;
    }
    try {
        carryOut(Json::parse(line));
    } catch (const std::exception& error) {
        events.report("order-refused", {{"order", std::string(line)}, {"reason", error.what()}});
    }
}

void OrderBook::carryOut(const Json& order) {
    if (!order.is_object()) {
        throw JsonError("an order has to be an object");
    }
    const std::string name = textField(order, "order");
    const auto found = table.find(name);
    if (found == table.end()) {
        throw JsonError("unknown order \"" + name + "\"");
    }
    found->second(order);
}

}  // namespace simulator
