#include "Tests/QMFramework92/Utility/FakeNiceValues.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <mutex>

namespace {

struct Scheduler {
    std::mutex lock;
    bool faked = false;
    bool mayRaise = true;
    std::map<id_t, int> niceOfThread;  // what is not here is 0
};

Scheduler& scheduler() {
    static Scheduler* const only = new Scheduler;
    return *only;
}

}  // namespace

// The linker directs this program's calls here (--wrap).
extern "C" {
int __real_getpriority(__priority_which_t which, id_t who);
int __real_setpriority(__priority_which_t which, id_t who, int nice);

int __wrap_getpriority(__priority_which_t which, id_t who) {
    Scheduler& fake = scheduler();
    const std::lock_guard<std::mutex> guard(fake.lock);
    if (!fake.faked) {
        return __real_getpriority(which, who);
    }
    const auto found = fake.niceOfThread.find(who);
    return found == fake.niceOfThread.end() ? 0 : found->second;
}

int __wrap_setpriority(__priority_which_t which, id_t who, int nice) {
    Scheduler& fake = scheduler();
    const std::lock_guard<std::mutex> guard(fake.lock);
    if (!fake.faked) {
        return __real_setpriority(which, who, nice);
    }
    if (nice < 0 && !fake.mayRaise) {
        errno = EACCES;
        return -1;
    }
    fake.niceOfThread[who] = nice;
    return 0;
}
}

namespace wpp_test {

FakeNiceValues::FakeNiceValues() {
    const std::lock_guard<std::mutex> guard(scheduler().lock);
    scheduler().faked = true;
    scheduler().mayRaise = true;
    scheduler().niceOfThread.clear();
}

FakeNiceValues::~FakeNiceValues() {
    const std::lock_guard<std::mutex> guard(scheduler().lock);
    scheduler().faked = false;
}

void FakeNiceValues::refuseRaises() {
    const std::lock_guard<std::mutex> guard(scheduler().lock);
    scheduler().mayRaise = false;
}

void FakeNiceValues::setOwn(int nice) {
    const std::lock_guard<std::mutex> guard(scheduler().lock);
    scheduler().niceOfThread[static_cast<id_t>(gettid())] = nice;
}

int FakeNiceValues::niceOf(pid_t tid) {
    const std::lock_guard<std::mutex> guard(scheduler().lock);
    const auto found = scheduler().niceOfThread.find(static_cast<id_t>(tid));
    return found == scheduler().niceOfThread.end() ? 0 : found->second;
}

}  // namespace wpp_test
