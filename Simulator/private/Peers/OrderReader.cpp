#include "Simulator/private/Peers/OrderReader.h"

#include <utility>

namespace simulator {

OrderReader::OrderReader(PollLoop& loop, UniqueFd descriptor, OrderBook& orderBook)
    : book(orderBook),
      stream(
          loop, std::move(descriptor), [this](std::string_view bytes) { onBytes(bytes); },
          [this, &loop] {
              book.obey(lines.takeRest());
              loop.stop();
          }) {}

void OrderReader::onBytes(std::string_view bytes) {
    for (const std::string& line : lines.feed(bytes)) {
        book.obey(line);
    }
}

}  // namespace simulator
