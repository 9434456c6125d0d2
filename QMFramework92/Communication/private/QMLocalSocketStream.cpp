#include "Communication/QMLocalSocketStream.h"

#include <limits>
#include <new>

#include "Communication/private/QMLocalSocketStreamLog.h"
#include "Diagnostics/QMAssert.h"

void QMLocalSocketStream::prepareStart() {
    QMEvent::Drain(&ended);
    hasEnded = false;
    state = kStarting;
}

void QMLocalSocketStream::enterRunning() {
    int expected = kStarting;
    state.compare_exchange_strong(expected, kRunning);
}

void QMLocalSocketStream::requestStop() {
    state = kStopped;
    const bool signalled = QMEvent::WaitEvent(&ended, kStopGraceMs) == QMEvent::kSignalled;
    if (!signalled || !hasEnded) {
        sockets.shutdownAll();
    }
}

void QMLocalSocketStream::markEnded() {
    hasEnded = true;
    ended.SetEvent();
}

std::unique_ptr<std::uint8_t[]> QMLocalSocketStream::createBuffer(std::uint64_t size,
                                                                  const QMLocalSocketName& name) {
    try {
        if (size > std::numeric_limits<std::uint32_t>::max()) {
            throw std::bad_alloc();
        }
        return std::unique_ptr<std::uint8_t[]>(new std::uint8_t[static_cast<std::size_t>(size)]);
    } catch (const std::bad_alloc& exception) {
        QM_STREAM_ERROR("catch exception. SocketName[%s] length[%d] what[%s]\n", name.text,
                        static_cast<int>(size), exception.what());
    } catch (...) {
        QM_STREAM_ERROR("catch exception. SocketName[%s] length[%d]\n", name.text, static_cast<int>(size));
    }
    QM_ASSERT_FAILED();
    return nullptr;
}
