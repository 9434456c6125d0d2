#include "Simulator/private/Io/UniqueFd.h"

#include <unistd.h>

namespace simulator {

void UniqueFd::reset(int descriptor) {
    const int old = std::exchange(fd, descriptor);
    if (old >= 0 && old != descriptor) {
        ::close(old);
    }
}

}  // namespace simulator
