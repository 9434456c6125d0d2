#include "Foundation/QMWorker.h"

#include <cerrno>
#include <new>

#include "Diagnostics/QMLog.h"

namespace {

constexpr std::uint32_t kReadyTimeoutMs = 3000;
constexpr int kNotInitialized = -1;

}  // namespace

QMWorker::~QMWorker() {
    Stop(QM_WAIT_INFINITE);
}

bool QMWorker::Start(const char* name) {
    if (isOwnThread()) {
        // Without the lock, which a Stop holds while it waits for this thread.
        QM_LOG_ERROR("error [%s]\n", name == nullptr ? "(null)" : name);
        return false;
    }
    QMSyncGuard guard(stateLock);
    if (thread != nullptr) {
        // A thread that exists has not been joined; it refuses, and logs that itself.
        return thread->Start(name);
    }
    if (!box.PrepareRun() || !createThread()) {
        return false;
    }
    if (!thread->Start(name)) {
        endThread(QM_WAIT_INFINITE);
        return false;
    }
    return true;
}

bool QMWorker::Stop(unsigned timeoutMs) {
    if (isOwnThread()) {
        box.RequestStop();
        return false;
    }
    QMSyncGuard guard(stateLock);
    return thread == nullptr || endThread(timeoutMs);
}

bool QMWorker::createThread() {
    try {
        thread = std::make_unique<QMThread<QMWorker>>(this, registryValue);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        qm_LogStdErrorShort(QM_SOURCE_PATH, "Start", __LINE__);
        return false;
    }
    return true;
}

bool QMWorker::endThread(unsigned timeoutMs) {
    box.RequestStop();
    const bool joined = thread->WaitExit(timeoutMs);
    thread.reset();
    return joined;
}

int QMWorker::runBox() {
    if (box.Initialize() != 0) {
        return kNotInitialized;
    }
    boxThread = pthread_self();
    const int result = box.Run(unitId);
    boxThread = pthread_t{};
    return result;
}

bool QMWorker::isReady() {
    return box.WaitReady(kReadyTimeoutMs) == 0;
}

bool QMWorker::isOwnThread() const {
    return pthread_equal(boxThread, pthread_self()) != 0;
}
