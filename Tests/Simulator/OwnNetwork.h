#pragma once

#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstring>

#include "Simulator/private/Io/UniqueFd.h"

namespace simulator {

/// Gives the calling thread, and the processes that it starts from then on, a network of their own with
/// nothing but a loopback interface, so that no program outside holds a port that they need.
/// @return false when the system does not allow it; the network stays as it was.
inline bool enterOwnNetwork() {
    if (::unshare(CLONE_NEWNET) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
        return false;
    }
    const UniqueFd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    return ::ioctl(fd.get(), SIOCSIFFLAGS, &request) == 0;
}

}  // namespace simulator
