#pragma once

#include <functional>

namespace wpp_test {

/// Runs something in this process, once, between the moment the system has connected a socket and the return of
/// that connect call. Set before the thread that connects starts.
class ConnectHook {
public:
    explicit ConnectHook(std::function<void()> afterConnect);
    ~ConnectHook();
    ConnectHook(const ConnectHook&) = delete;
    ConnectHook& operator=(const ConnectHook&) = delete;
};

}  // namespace wpp_test
