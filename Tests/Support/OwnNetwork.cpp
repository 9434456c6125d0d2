#include "Tests/Support/OwnNetwork.h"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>

namespace wpp_test {

bool enterOwnNetwork() {
    if (unshare(CLONE_NEWNET) != 0) {
        return false;
    }
    const int control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq loopback{};
    std::snprintf(loopback.ifr_name, sizeof(loopback.ifr_name), "lo");
    loopback.ifr_flags = IFF_UP | IFF_RUNNING;
    const bool isUp = ioctl(control, SIOCSIFFLAGS, &loopback) == 0;
    close(control);
    return isUp;
}

}  // namespace wpp_test
