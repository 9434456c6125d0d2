#include "Diagnostics/QMCallStack.h"

#include <execinfo.h>

#include <array>
#include <cstdlib>
#include <memory>

#include "Diagnostics/QMLog.h"

void QMCallStack::dumpDirectly(int depth) {
    constexpr std::size_t kMostFrames = 256;
    std::array<void*, kMostFrames> frames;
    const int captured = backtrace(frames.data(), static_cast<int>(frames.size()));
    const std::unique_ptr<char*, decltype(&std::free)> symbols(backtrace_symbols(frames.data(), captured),
                                                               &std::free);
    if (symbols == nullptr) {
        return;
    }
    const int shown = depth < 1 || depth > captured ? captured : depth;
    for (int i = 0; i < shown; ++i) {
        QM_LOG_ERROR("%s\n", symbols.get()[i]);
    }
}
