#include "inc/QMFramework.h"

#include <syslog.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>

#include "Diagnostics/QMLog.h"
#include "Foundation/QMThreadMng.h"
#include "Foundation/QMWatchDog.h"
#include "Pattern/QMSingleton.h"
#include "Utility/QMLTimerMng.h"
#include "Utility/QMString.h"
#include "inc/private/QMMemoryReport.h"

namespace {

constexpr std::size_t kProcessNameSize = 64;
constexpr int kSuccess = 1;
constexpr int kFailure = 0;

std::atomic<std::uint8_t> initialised{0};
std::atomic<std::uint32_t> memoryAccounting{0};
char processNameStore[kProcessNameSize];
QMThreadMng* threadMng = nullptr;

/// The text that the system log keeps a pointer to while it is open. It is never destroyed, since a process
/// that ends without qm_FwTerminate may log until its very end.
QMString& systemLogIdentity() {
    static QMString* const identity = new QMString;
    return *identity;
}

void storeProcessName(const char* name) {
    if (name != nullptr && std::strlen(name) >= kProcessNameSize) {
        qm_Log(QM_SOURCE_PATH, "qm_FwInitialize", __LINE__, QM_LOG_LEVEL_ERROR,
               "name size is over. max[%d]\n", static_cast<int>(kProcessNameSize));
        name = nullptr;
    }
    std::snprintf(processNameStore, sizeof(processNameStore), "%s", name == nullptr ? "Unknown" : name);
}

void openSystemLog() {
    systemLogIdentity() = QMString(processNameStore, QM_CODE_PAGE_UTF8);
    openlog(systemLogIdentity().ToCHAR(QM_CODE_PAGE_UTF8), LOG_PID | LOG_CONS | LOG_NDELAY, LOG_USER);
}

bool startServices() {
    try {
        openSystemLog();
        threadMng = QMThreadMng::getInstance();
        return QMWatchDog::getInstance()->Start();
    } catch (const std::exception& exception) {
        qm_Log(QM_SOURCE_PATH, "qm_FwInitialize", __LINE__, QM_LOG_LEVEL_ERROR,
               "catch exception. what [%s]\n", exception.what());
        return false;
    }
}

}  // namespace

int qm_FwInitialize(const char* processName, int /*reserved*/) {
    if (initialised != 0) {
        return initialised;
    }
    memoryAccounting = 0;
    storeProcessName(processName);
    if (!startServices()) {
        qm_FwTerminate();
        return kFailure;
    }
    initialised = kSuccess;
    return kSuccess;
}

void qm_FwTerminate() {
    if (initialised == 0) {
        return;
    }
    if (threadMng != nullptr) {
        // The timer threads use the thread manager, the watchdog and the tick counter, which are older than
        // the timer manager and so are destroyed before it.
        QMLTimerMng::StopThreads();
        QMWatchDog::getInstance()->Stop();
        threadMng = nullptr;
    }
    qm_DestroySingletons();
    closelog();
    if (memoryAccounting != 0) {
        qm_WriteMemoryReport(processNameStore);
    }
    initialised = 0;
}

void qm_SetMemoryAccounting(std::uint32_t flag) {
    memoryAccounting = flag;
}

const char* qm_GetProcessName() {
    return processNameStore;
}
