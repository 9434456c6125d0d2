#pragma once

#include <cstddef>

namespace wpp_test {

/// How often this program has let time pass without waiting for anything.
std::size_t pauses();

/// Makes the next epoll_waits of this program fail, and the next poll that waits for something find nothing.
void spoilNextEpollWait(int count = 1);
void spoilNextPoll();

}  // namespace wpp_test
