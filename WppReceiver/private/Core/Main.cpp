#include <sys/resource.h>

#include <exception>
#include <optional>

#include "Core/WppReceiver.h"
#include "Diagnostics/QMLog.h"
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

constexpr int kServed = 0;
constexpr int kNotBegun = 1;

/// @return the process's status. What cannot even be made for want of memory cannot be ended by the controller
///         either, so the process gives up and leaves it to whoever started it to try again.
int serve() {
    std::optional<wifi_projection_protocol::WppReceiver> receiver;
    try {
        receiver.emplace();
    } catch (const std::exception& exception) {
        qm_Log(QM_SOURCE_PATH, "main", __LINE__, QM_LOG_LEVEL_ERROR, "catch exception. what [%s]\n",
               exception.what());
        return kNotBegun;
    }
    receiver->run();
    return kServed;
}

}  // namespace

int main() {
    qm_OccupyStandardDescriptors();
    allowAllDescriptors();
    qm_FwInitialize("WppReceiver", -1);
    const int status = serve();
    qm_FwTerminate();
    return status;
}
