#include "Tests/QMFramework92/Foundation/FailingPipe.h"

#include <atomic>
#include <cerrno>

namespace {

// How many creations there are until the one that fails; 0 and below when none does.
std::atomic<int> untilFailure{0};

}  // namespace

namespace wpp_test {

FailingPipe::FailingPipe(int number) {
    untilFailure = number;
}

FailingPipe::~FailingPipe() {
    untilFailure = 0;
}

}  // namespace wpp_test

// Every pipe2 of this program comes through here; the linker gives the functions their names.
extern "C" int __real_pipe2(int ends[2], int flags);
extern "C" int __wrap_pipe2(int ends[2], int flags) {
    if (untilFailure.fetch_sub(1) == 1) {
        errno = EMFILE;
        return -1;
    }
    return __real_pipe2(ends, flags);
}
