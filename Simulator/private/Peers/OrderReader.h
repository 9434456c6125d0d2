#pragma once

#include <string_view>

#include "Simulator/private/Io/ByteStream.h"
#include "Simulator/private/Io/LineSplitter.h"
#include "Simulator/private/Peers/OrderBook.h"

namespace simulator {

/// Reads orders from a descriptor until its end, then stops the loop: a peer goes when whoever orders it
/// goes.
class OrderReader {
public:
    /// Takes over `descriptor`.
    OrderReader(PollLoop& loop, UniqueFd descriptor, OrderBook& orderBook);

private:
    void onBytes(std::string_view bytes);

    OrderBook& book;
    LineSplitter lines;
    ByteStream stream;
};

}  // namespace simulator
