#include "Tests/QMFramework92/Utility/FailingJoin.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace {

std::atomic<int> failuresLeft{0};

}  // namespace

// The linker directs this program's calls here (--wrap).
extern "C" int __real_pthread_join(pthread_t thread, void** result);
extern "C" int __wrap_pthread_join(pthread_t thread, void** result) {
    const int joined = __real_pthread_join(thread, result);
    return failuresLeft > 0 && failuresLeft-- > 0 ? EDEADLK : joined;
}

namespace wpp_test {

FailingJoin::FailingJoin(int count) {
    failuresLeft = count;
}

FailingJoin::~FailingJoin() {
    failuresLeft = 0;
}

}  // namespace wpp_test
