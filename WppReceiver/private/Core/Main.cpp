#include <sys/resource.h>

#include "Core/WppReceiver.h"
#include "Foundation/QMDescriptor.h"
#include "inc/QMFramework.h"

namespace {

/// All 254 phones on both ways cost some 1100 descriptors, and what a process is given to begin with is often
/// 1024. Where no more can be had, fewer phones fit in at a time.
void allowAllDescriptors() {
    rlimit descriptors{};
    if (getrlimit(RLIMIT_NOFILE, &descriptors) == 0) {
        descriptors.rlim_cur = descriptors.rlim_max;
        static_cast<void>(setrlimit(RLIMIT_NOFILE, &descriptors));
    }
}

}  // namespace

int main() {
    qm_OccupyStandardDescriptors();
    allowAllDescriptors();
    qm_FwInitialize("WppReceiver", -1);
    {
        wifi_projection_protocol::WppReceiver receiver;
        receiver.run();
    }
    qm_FwTerminate();
    return 0;
}
