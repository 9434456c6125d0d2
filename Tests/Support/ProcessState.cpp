#include "Tests/Support/ProcessState.h"

#include <fcntl.h>
#include <pthread.h>

#include <filesystem>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <string>

namespace wpp_test {

std::set<int> openDescriptors() {
    std::set<int> open;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        open.insert(std::stoi(entry.path().filename().string()));
    }
    // The descriptor that listed the directory is closed again by now.
    for (auto it = open.begin(); it != open.end();) {
        it = fcntl(*it, F_GETFD) == -1 ? open.erase(it) : std::next(it);
    }
    return open;
}

std::size_t threadCount() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

NoMoreDescriptors::NoMoreDescriptors() {
    getrlimit(RLIMIT_NOFILE, &former);
    rlimit none = former;
    none.rlim_cur = 0;
    if (setrlimit(RLIMIT_NOFILE, &none) != 0) {
        throw std::runtime_error("cannot limit the descriptors");
    }
}

NoMoreDescriptors::~NoMoreDescriptors() {
    setrlimit(RLIMIT_NOFILE, &former);
}

namespace {

// A default stack that no address space can hold is what makes the start fail, also for root.
std::size_t exchangeDefaultStackSize(std::size_t size) {
    std::size_t former = 0;
    pthread_attr_t attributes;
    pthread_getattr_default_np(&attributes);
    pthread_attr_getstacksize(&attributes, &former);
    pthread_attr_setstacksize(&attributes, size);
    const int result = pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
    if (result != 0) {
        throw std::runtime_error("cannot set the default stack size");
    }
    return former;
}

}  // namespace

NoMoreThreads::NoMoreThreads() {
    constexpr std::size_t kShortOfTheWholeAddressSpace = 64 * 1024 * 1024 - 1;
    formerStackSize =
        exchangeDefaultStackSize(std::numeric_limits<std::size_t>::max() - kShortOfTheWholeAddressSpace);
}

NoMoreThreads::~NoMoreThreads() {
    exchangeDefaultStackSize(formerStackSize);
}

}  // namespace wpp_test
