#include <exception>
#include <optional>

#include "Core/WppReceiver.h"
#include "Diagnostics/QMLog.h"
#include "Foundation/QMDescriptor.h"
#include "inc/QMFramework.h"

namespace {

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
    qm_FwInitialize("WppReceiver", -1);
    const int status = serve();
    qm_FwTerminate();
    return status;
}
