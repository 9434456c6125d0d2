#include "Communication/QMLocalSocketStream.h"

#include <limits>
#include <new>

#include "Communication/private/QMLocalSocket.h"
#include "Communication/private/QMLocalSocketStreamLog.h"
#include "Diagnostics/QMAssert.h"

namespace {

using namespace std::chrono_literals;

constexpr auto kReleasePeriod = 100ms;  // between two looks at a thread that has not ended within its grace
constexpr auto kFailedWaitPause = 50ms;

}  // namespace

void QMLocalSocketStream::prepareStart() {
    QMEvent::Drain(&ended);
    hasEnded = false;
    noSocket = false;
    state = kStarting;
}

void QMLocalSocketStream::enterRunning() {
    int expected = kStarting;
    state.compare_exchange_strong(expected, kRunning);
}

void QMLocalSocketStream::requestStop() {
    state = kStopped;
    for (auto patience = kStopGrace; !hasEndedWithin(patience); patience = kReleasePeriod) {
        // Again and again: what a long handler sends may block later than this.
        sockets.releaseBlocked();
    }
}

/// A signal of the event only ends the wait early: it may be an earlier thread's, and out of descriptors there
/// is no wait at all.
bool QMLocalSocketStream::hasEndedWithin(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!hasEnded) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left <= 0ms) {
            return false;
        }
        if (QMEvent::WaitEvent(&ended, static_cast<std::uint32_t>(left.count())) == QMEvent::kError) {
            qm_Pause(kFailedWaitPause);
        }
    }
    return true;
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
