#include "Simulator/private/Road/SignalWatch.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace simulator {

SignalWatch::SignalWatch(PollLoop& pollLoop, Handlers signalHandlers)
    : loop(pollLoop), handlers(std::move(signalHandlers)) {
    sigset_t watched;
    ::sigemptyset(&watched);
    for (const int signal : {SIGINT, SIGTERM, SIGCHLD}) {
        ::sigaddset(&watched, signal);
    }
    fd.reset(::signalfd(-1, &watched, SFD_NONBLOCK | SFD_CLOEXEC));
    if (!fd) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    ::pthread_sigmask(SIG_BLOCK, &watched, &former);
    loop.watch(fd.get(), POLLIN, [this](short) { onReady(); });
}

SignalWatch::~SignalWatch() {
    loop.forget(fd.get());
    ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

void SignalWatch::onReady() {
    signalfd_siginfo info{};
    while (::read(fd.get(), &info, sizeof(info)) == static_cast<ssize_t>(sizeof(info))) {
        const int signal = static_cast<int>(info.ssi_signo);
        if (signal == SIGCHLD) {
            handlers.childEnded();
        } else {
            handlers.interrupted(signal);
        }
    }
}

}  // namespace simulator
