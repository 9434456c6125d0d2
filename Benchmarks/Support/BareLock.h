#pragma once

#include <semaphore.h>

namespace wpp_benchmark {

/// A lock that is its semaphore and nothing else; the floor under every lock that is built on one.
class BareLock {
public:
    BareLock() { sem_init(&semaphore, 0, 1); }
    ~BareLock() { sem_destroy(&semaphore); }
    BareLock(const BareLock&) = delete;
    BareLock& operator=(const BareLock&) = delete;

    void lock() { sem_wait(&semaphore); }
    void unlock() { sem_post(&semaphore); }

private:
    sem_t semaphore{};
};

}  // namespace wpp_benchmark
