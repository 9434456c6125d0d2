#include "Core/WppReceiver.h"
#include "Foundation/QMDescriptor.h"
#include "inc/QMFramework.h"

int main() {
    qm_OccupyStandardDescriptors();
    qm_FwInitialize("WppReceiver", -1);
    {
        wifi_projection_protocol::WppReceiver receiver;
        receiver.run();
    }
    qm_FwTerminate();
    return 0;
}
