#include "Tests/Torture/CallHooks.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <initializer_list>
#include <memory>

#include "Tests/Torture/AllocationHooks.h"

// Only beside the allocation hooks can a scope be left out; in front of a whole program there is nobody to ask for it.
namespace wpp_torture {
__attribute__((weak)) Unharmed::Unharmed() = default;
__attribute__((weak)) Unharmed::~Unharmed() = default;
__attribute__((weak)) bool isUnharmed() {
    return false;
}
}  // namespace wpp_torture

namespace {

using wpp_torture::Call;
using wpp_torture::CallControl;
using wpp_torture::CallRecord;
using wpp_torture::Effect;
using wpp_torture::Failing;
using wpp_torture::kCallCount;
using wpp_torture::kMostRecords;
using wpp_torture::kShort;
using wpp_torture::Stack;

std::atomic<CallControl*> control{nullptr};

// The last call of this kind on this thread met a passing failure from there on: its repetition does not.
__attribute__((tls_model("initial-exec"))) thread_local bool wasHit[kCallCount] = {};
__attribute__((tls_model("initial-exec"))) thread_local bool insideHook = false;

constexpr int kNothing = -1;  // no effect: the real call is made

/// The C library's form of a call.
#define WPP_REAL(name)                                                                          \
    ([]() {                                                                                     \
        static const auto found = reinterpret_cast<decltype(&::name)>(dlsym(RTLD_NEXT, #name)); \
        return found;                                                                           \
    }())

/// Whether it is the system's own code that calls, or the library beneath it; a thread is begun through the C++
/// library.
bool isOurs(void* caller, Call call) {
    dl_find_object found;
    if (!wpp_torture::locate(caller, found)) {
        return false;
    }
    const char* const module = wpp_torture::moduleOf(found);
    const auto begins = [module](const char* name) {
        return std::strncmp(module, name, std::strlen(name)) == 0;
    };
    return *module == '\0' || begins("libreceiver-lib") || (call == Call::kThread && begins("libstdc++"));
}

void record(CallControl& shared, std::uint64_t number, Call call, std::uint64_t stack) {
    if (number <= kMostRecords) {
        CallRecord& entry = shared.records[number - 1];
        entry.call = static_cast<std::uint32_t>(call);
        entry.stack = stack;
        entry.ready = 1;
    }
}

/// Whether the chosen call is reached, for the first time.
bool isFirstHit(CallControl& shared, std::uint64_t number, const Stack& stack, std::uint64_t hash) {
    const std::uint64_t index = shared.index;
    std::uint64_t none = 0;
    if (!(index != 0 ? index == number : shared.stack == hash) ||
        !shared.injections.compare_exchange_strong(none, 1)) {
        return false;
    }
    shared.frameCount = wpp_torture::describeStack(stack, shared.frames);
    return true;
}

bool isHit(CallControl& shared, Failing failing, std::uint64_t number, const Stack& stack,
           std::uint64_t hash) {
    if (failing == Failing::kEvery) {
        if (shared.index == 0 || number % shared.index != 0) {
            return false;
        }
        if (++shared.injections == 1) {
            shared.frameCount = wpp_torture::describeStack(stack, shared.frames);
        }
        return true;
    }
    if (shared.injections == 0) {
        return isFirstHit(shared, number, stack, hash);
    }
    if (failing != Failing::kFromThereOn) {
        return false;
    }
    ++shared.injections;
    return true;
}

/// @return the effect of the call being made, kNothing for none.
__attribute__((noinline)) int judge(CallControl& shared, Call call, void* caller, std::size_t length) {
    const std::uint64_t total = ++shared.calls;
    const std::uint64_t number = ++shared.counts[static_cast<std::size_t>(call)];
    const auto failing = static_cast<Failing>(shared.failing.load());
    const bool isChosen = failing != Failing::kNone && shared.call == static_cast<std::uint32_t>(call);
    const bool isListing = shared.listing != 0;
    if (!isListing && !isChosen) {
        return kNothing;
    }
    const Effect effect = shared.effect;
    bool& hit = wasHit[static_cast<std::size_t>(call)];
    if (isChosen && failing != Failing::kOnce && hit) {
        hit = false;
        return kNothing;
    }
    const Stack stack = wpp_torture::takeStack(caller);
    const std::uint64_t hash = wpp_torture::hashOf(stack);
    if (isListing) {
        record(shared, total, call, hash);
    }
    if (!isChosen || (effect == kShort && length < 2) || !isHit(shared, failing, number, stack, hash)) {
        return kNothing;
    }
    hit = failing != Failing::kOnce && (effect == EINTR || effect == EAGAIN || call == Call::kPause);
    return effect;
}

bool isCallerUnharmed() {
    return wpp_torture::isUnharmed();
}

/// What is begun by a thread that nothing is done to has nothing done to it either.
struct UnharmedThread {
    void* (*routine)(void*);
    void* argument;

    static void* run(void* begun) {
        const wpp_torture::Unharmed unharmed;
        const std::unique_ptr<UnharmedThread> self(static_cast<UnharmedThread*>(begun));
        return self->routine(self->argument);
    }
};

/// @return the effect of the call, with errno set; kNothing when the real call is to be made.
int effectOn(Call call, void* caller, std::size_t length = 0) {
    CallControl* const shared = control;
    if (shared == nullptr || insideHook || shared->armed == 0 || !isOurs(caller, call) ||
        isCallerUnharmed()) {
        return kNothing;
    }
    insideHook = true;
    const int error = errno;
    const int effect = judge(*shared, call, caller, length);
    insideHook = false;
    errno = effect == kNothing ? error : effect;
    return effect;
}

bool fails(Call call, void* caller) {
    return effectOn(call, caller) != kNothing;
}

int domainOf(int descriptor) {
    int domain = AF_UNSPEC;
    socklen_t size = sizeof(domain);
    const int error = errno;
    ::getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size);
    errno = error;
    return domain;
}

Call byDomain(int domain, Call local, Call tcp) {
    return domain == AF_INET || domain == AF_INET6 ? tcp : local;
}

/// A connection that was lost does not come back.
void loseConnection(int descriptor, int error) {
    if (error == ECONNRESET || error == EPIPE || error == ETIMEDOUT || error == EHOSTUNREACH) {
        ::shutdown(descriptor, SHUT_RDWR);
        errno = error;
    }
}

/// These leave the peer in the listener's queue; with the others it is gone.
bool leavesPeerWaiting(int error) {
    const std::initializer_list<int> waiting{EAGAIN, EINTR, EMFILE, ENFILE, ENOBUFS, ENOMEM};
    return std::find(waiting.begin(), waiting.end(), error) != waiting.end();
}

__attribute__((constructor)) void takeControlFromFile() {
    const char* const path = std::getenv(wpp_torture::kControlVariable);
    const int descriptor = path == nullptr ? -1 : ::open(path, O_RDWR | O_CLOEXEC);
    if (descriptor < 0) {
        return;
    }
    void* const memory =
        mmap(nullptr, sizeof(CallControl), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    close(descriptor);
    if (memory != MAP_FAILED) {
        wpp_torture::useCallControl(static_cast<CallControl*>(memory));
    }
}

}  // namespace

namespace wpp_torture {

void useCallControl(CallControl* newControl) {
    useUnwinder();
    control = newControl;
}

}  // namespace wpp_torture

// This program's own forms of the calls; they take the place of the C library's for the program and its libraries.

extern "C" int socket(int domain, int type, int protocol) noexcept {
    return fails(byDomain(domain, Call::kSocketLocal, Call::kSocketTcp), WPP_CALLER)
               ? -1
               : WPP_REAL(socket)(domain, type, protocol);
}

extern "C" int bind(int descriptor, const sockaddr* address, socklen_t length) noexcept {
    return fails(byDomain(address->sa_family, Call::kBindLocal, Call::kBindTcp), WPP_CALLER)
               ? -1
               : WPP_REAL(bind)(descriptor, address, length);
}

extern "C" int listen(int descriptor, int backlog) noexcept {
    return fails(byDomain(domainOf(descriptor), Call::kListenLocal, Call::kListenTcp), WPP_CALLER)
               ? -1
               : WPP_REAL(listen)(descriptor, backlog);
}

extern "C" int accept4(int descriptor, sockaddr* address, socklen_t* length, int flags) {
    const int effect =
        effectOn(byDomain(domainOf(descriptor), Call::kAcceptLocal, Call::kAcceptTcp), WPP_CALLER);
    if (effect == kNothing) {
        return WPP_REAL(accept4)(descriptor, address, length, flags);
    }
    if (!leavesPeerWaiting(effect)) {
        close(WPP_REAL(accept4)(descriptor, nullptr, nullptr, SOCK_CLOEXEC));
    }
    errno = effect;
    return -1;
}

extern "C" int connect(int descriptor, const sockaddr* address, socklen_t length) {
    return address->sa_family == AF_UNIX && fails(Call::kConnectLocal, WPP_CALLER)
               ? -1
               : WPP_REAL(connect)(descriptor, address, length);
}

extern "C" int poll(pollfd* descriptors, nfds_t count, int timeoutMs) {
    return fails(count == 0 ? Call::kPause : Call::kPoll, WPP_CALLER)
               ? -1
               : WPP_REAL(poll)(descriptors, count, timeoutMs);
}

extern "C" int epoll_create1(int flags) noexcept {
    return fails(Call::kEpollCreate, WPP_CALLER) ? -1 : WPP_REAL(epoll_create1)(flags);
}

extern "C" int epoll_ctl(int epoll, int operation, int descriptor, epoll_event* event) noexcept {
    return fails(operation == EPOLL_CTL_ADD ? Call::kEpollAdd : Call::kEpollDelete, WPP_CALLER)
               ? -1
               : WPP_REAL(epoll_ctl)(epoll, operation, descriptor, event);
}

extern "C" int epoll_wait(int epoll, epoll_event* events, int count, int timeoutMs) {
    return fails(Call::kEpollWait, WPP_CALLER) ? -1 : WPP_REAL(epoll_wait)(epoll, events, count, timeoutMs);
}

extern "C" int eventfd(unsigned int value, int flags) noexcept {
    return fails(Call::kEventFd, WPP_CALLER) ? -1 : WPP_REAL(eventfd)(value, flags);
}

extern "C" int pipe2(int* ends, int flags) noexcept {
    return fails(Call::kPipe, WPP_CALLER) ? -1 : WPP_REAL(pipe2)(ends, flags);
}

extern "C" ssize_t read(int descriptor, void* buffer, size_t length) {
    return length == 1 && fails(Call::kReadPipe, WPP_CALLER) ? -1
                                                             : WPP_REAL(read)(descriptor, buffer, length);
}

extern "C" ssize_t write(int descriptor, const void* buffer, size_t length) {
    return length == 1 && fails(Call::kWritePipe, WPP_CALLER) ? -1
                                                              : WPP_REAL(write)(descriptor, buffer, length);
}

extern "C" ssize_t send(int descriptor, const void* buffer, size_t length, int flags) {
    const int effect =
        effectOn(byDomain(domainOf(descriptor), Call::kSendLocal, Call::kSendTcp), WPP_CALLER, length);
    if (effect == kNothing || effect == kShort) {
        return WPP_REAL(send)(descriptor, buffer, effect == kShort ? length / 2 : length, flags);
    }
    loseConnection(descriptor, effect);
    if (effect == EPIPE && (flags & MSG_NOSIGNAL) == 0) {
        pthread_kill(pthread_self(), SIGPIPE);
        errno = effect;
    }
    return -1;
}

extern "C" ssize_t recv(int descriptor, void* buffer, size_t length, int flags) {
    const int effect =
        effectOn(byDomain(domainOf(descriptor), Call::kRecvLocal, Call::kRecvTcp), WPP_CALLER, length);
    if (effect == kNothing || effect == kShort) {
        return WPP_REAL(recv)(descriptor, buffer, effect == kShort ? length / 2 : length, flags);
    }
    loseConnection(descriptor, effect);
    return -1;
}

extern "C" int fcntl(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return fails(Call::kFcntl, WPP_CALLER) ? -1 : WPP_REAL(fcntl)(descriptor, command, argument);
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                              void* argument) noexcept {
    const int error = errno;
    if (fails(Call::kThread, WPP_CALLER)) {
        errno = error;
        return EAGAIN;
    }
    if (!isCallerUnharmed()) {
        return WPP_REAL(pthread_create)(thread, attributes, routine, argument);
    }
    auto* const begun = new UnharmedThread{routine, argument};
    return WPP_REAL(pthread_create)(thread, attributes, &UnharmedThread::run, begun);
}

extern "C" sem_t* sem_open(const char* name, int flags, ...) noexcept {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, mode_t);
    const auto value = va_arg(arguments, unsigned);
    va_end(arguments);
    return fails(Call::kSemOpen, WPP_CALLER) ? SEM_FAILED : WPP_REAL(sem_open)(name, flags, mode, value);
}

extern "C" int sem_wait(sem_t* semaphore) {
    return fails(Call::kSemWait, WPP_CALLER) ? -1 : WPP_REAL(sem_wait)(semaphore);
}

extern "C" int sem_timedwait(sem_t* semaphore, const timespec* deadline) {
    return fails(Call::kSemTimedWait, WPP_CALLER) ? -1 : WPP_REAL(sem_timedwait)(semaphore, deadline);
}
