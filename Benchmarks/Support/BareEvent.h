#pragma once

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

namespace wpp_benchmark {

/// A pipe event that is its system calls and nothing else: no failure is looked at.
class BareEvent {
public:
    BareEvent() {
        if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
            ends[0] = ends[1] = -1;
        }
    }
    ~BareEvent() {
        close(ends[0]);
        close(ends[1]);
    }
    BareEvent(const BareEvent&) = delete;
    BareEvent& operator=(const BareEvent&) = delete;

    void set() {
        const unsigned char signal = 1;
        static_cast<void>(!write(ends[1], &signal, sizeof(signal)));
    }

    /// A wait on a set made for it. @return the index of the event whose signal was taken, -1 when there was none.
    template <int Count>
    static int wait(BareEvent* const (&events)[Count], int timeoutMs) {
        const int set = epoll_create1(EPOLL_CLOEXEC);
        for (int i = 0; i < Count; ++i) {
            epoll_event registration{};
            registration.events = EPOLLIN;
            registration.data.fd = i;
            epoll_ctl(set, EPOLL_CTL_ADD, events[i]->ends[0], &registration);
        }
        epoll_event ready[Count];
        int taken = -1;
        if (epoll_wait(set, ready, Count, timeoutMs) > 0) {
            taken = ready[0].data.fd;
            unsigned char signal = 0;
            static_cast<void>(!read(events[taken]->ends[0], &signal, sizeof(signal)));
        }
        close(set);
        return taken;
    }

    int wait(int timeoutMs) { return wait<1>({this}, timeoutMs); }

    /// Takes all signals, one wait for each and one for none.
    void drain() {
        while (wait(0) >= 0) {
        }
    }

private:
    int ends[2];
};

}  // namespace wpp_benchmark
