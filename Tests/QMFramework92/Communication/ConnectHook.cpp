#include "Tests/QMFramework92/Communication/ConnectHook.h"

#include <sys/socket.h>

#include <atomic>
#include <utility>

// The linker directs every connect of the program to the wrapping form.
extern "C" int __real_connect(int descriptor, const sockaddr* address, socklen_t length);
extern "C" int __wrap_connect(int descriptor, const sockaddr* address, socklen_t length);

namespace {

std::function<void()> hook;
std::atomic<bool> isSet{false};

}  // namespace

int __wrap_connect(int descriptor, const sockaddr* address, socklen_t length) {
    const int result = __real_connect(descriptor, address, length);
    if (result == 0 && isSet.exchange(false)) {
        hook();
    }
    return result;
}

namespace wpp_test {

ConnectHook::ConnectHook(std::function<void()> afterConnect) {
    hook = std::move(afterConnect);
    isSet = true;
}

ConnectHook::~ConnectHook() {
    isSet = false;
}

}  // namespace wpp_test
