#pragma once

#include <atomic>
#include <cstdint>

#include "Utility/QMTickSource.h"

namespace wpp_test {

/// A time that stands still until the test moves it.
class FakeTickSource : public QMTickSource {
public:
    explicit FakeTickSource(std::uint32_t start = 0) : tick(start) {}

    std::uint32_t GetTickCount() override { return tick; }

    void set(std::uint32_t value) { tick = value; }

    /// Wraps as the real one does.
    void advance(std::uint32_t ms) { tick += ms; }

private:
    std::atomic<std::uint32_t> tick;
};

}  // namespace wpp_test
