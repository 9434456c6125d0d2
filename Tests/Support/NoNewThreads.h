#pragma once

#include <pthread.h>

namespace wpp_test {

/// Makes every new thread of this process fail for want of room for its stack, for the length of a scope.
class NoNewThreads {
public:
    NoNewThreads();
    ~NoNewThreads();
    NoNewThreads(const NoNewThreads&) = delete;
    NoNewThreads& operator=(const NoNewThreads&) = delete;

private:
    pthread_attr_t usual;
};

}  // namespace wpp_test
