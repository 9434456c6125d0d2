#include "Tests/QMFramework92/Communication/FailingAllocation.h"

#include <atomic>
#include <limits>
#include <new>

// The linker directs the program's array allocations here (--wrap) and the names with "real" to the runtime's
// own operators, whichever runtime that is. The mangled names hold the type of std::size_t.
#if defined(__LP64__)
#define WPP_NEW_ARRAY(prefix) prefix##_Znam
#define WPP_NEW_ARRAY_NOTHROW(prefix) prefix##_ZnamRKSt9nothrow_t
#else
#define WPP_NEW_ARRAY(prefix) prefix##_Znaj
#define WPP_NEW_ARRAY_NOTHROW(prefix) prefix##_ZnajRKSt9nothrow_t
#endif

extern "C" {
void* WPP_NEW_ARRAY(__real_)(std::size_t size);
void* WPP_NEW_ARRAY(__wrap_)(std::size_t size);
void* WPP_NEW_ARRAY_NOTHROW(__real_)(std::size_t size, const std::nothrow_t& tag);
void* WPP_NEW_ARRAY_NOTHROW(__wrap_)(std::size_t size, const std::nothrow_t& tag);
}

namespace {

std::atomic<std::size_t> failingSize{0};

constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();
std::atomic<std::size_t> largestSize{kNoLimit};
std::atomic<wpp_test::FailingAllocation::Kind> failingKind{wpp_test::FailingAllocation::kBadAlloc};

struct NotAStandardException {};

bool fails(std::size_t size) {
    return size > largestSize || (size != 0 && size == failingSize);
}

}  // namespace

namespace wpp_test {

FailingAllocation::FailingAllocation(std::size_t size, Kind kind) {
    failingKind = kind;
    failingSize = size;
}

FailingAllocation::~FailingAllocation() {
    failingSize = 0;
}

ArrayLimit::ArrayLimit(std::size_t largest) {
    largestSize = largest;
}

ArrayLimit::~ArrayLimit() {
    largestSize = kNoLimit;
}

}  // namespace wpp_test

void* WPP_NEW_ARRAY(__wrap_)(std::size_t size) {
    if (fails(size)) {
        if (failingKind == wpp_test::FailingAllocation::kOtherException) {
            throw NotAStandardException();
        }
        throw std::bad_alloc();
    }
    return WPP_NEW_ARRAY(__real_)(size);
}

void* WPP_NEW_ARRAY_NOTHROW(__wrap_)(std::size_t size, const std::nothrow_t& tag) {
    return fails(size) ? nullptr : WPP_NEW_ARRAY_NOTHROW(__real_)(size, tag);
}
