#include "Tests/Torture/AllocationHooks.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

// What really allocates: the sanitizer's allocator, or the C library's own.
#if defined(WPP_BESIDE_ADDRESS_SANITIZER)
#include <new>
#define WPP_REAL(call) __interceptor_##call
#else
#define WPP_REAL(call) __libc_##call
#endif

extern "C" {
void* WPP_REAL(malloc)(std::size_t size);
void* WPP_REAL(calloc)(std::size_t count, std::size_t size);
void* WPP_REAL(realloc)(void* memory, std::size_t size);
void* WPP_REAL(memalign)(std::size_t alignment, std::size_t size);
void WPP_REAL(free)(void* memory);
}

namespace {

using wpp_torture::AllocationControl;
using wpp_torture::Failing;
using wpp_torture::kMostRecords;
using wpp_torture::Stack;
using wpp_torture::takeStack;

// The hooks run before any constructor and after every destructor, so nothing here has one. The initial-exec model
// keeps a thread's first look at its variable from allocating.
#define WPP_THREAD_VARIABLE __attribute__((tls_model("initial-exec"))) thread_local

std::atomic<AllocationControl*> control{nullptr};
std::atomic<bool> countsUnharmed{false};
std::atomic<bool> mainHasBegun{false};
std::atomic<std::uint64_t> takenBeforeMain{0};
WPP_THREAD_VARIABLE unsigned unharmedScopes = 0;

/// Marks what the hooks themselves allocate, inside the unwinder and the loader.
struct InsideHook {
    InsideHook() { ++unharmedScopes; }
    ~InsideHook() { --unharmedScopes; }
};

bool isChosen(AllocationControl& shared, std::uint64_t number, std::uint64_t stack) {
    const std::uint64_t index = shared.index;
    return index != 0 ? index == number : shared.stack == stack;
}

/// Whether the allocation being made fails. One that has failed once makes all later ones follow it, or none.
__attribute__((noinline)) bool judge(AllocationControl& shared, void* caller) {
    const InsideHook inside;
    const std::uint64_t number = ++shared.allocations;
    const auto failing = static_cast<Failing>(shared.failing.load());
    const bool isListing = shared.listing != 0;
    if (failing == Failing::kNone && !isListing) {
        return false;
    }
    if (shared.failures != 0) {
        if (failing == Failing::kFromThereOn) {
            ++shared.failures;
            return true;
        }
        return false;
    }
    const bool wantsStack = isListing || shared.index == 0 || shared.index == number;
    const Stack stack = wantsStack ? takeStack(caller) : Stack{};
    const std::uint64_t hash = wantsStack ? hashOf(stack) : 0;
    if (isListing && number <= kMostRecords) {
        shared.stacks[number - 1] = hash;
    }
    if (failing == Failing::kNone || !isChosen(shared, number, hash)) {
        return false;
    }
    std::uint64_t none = 0;
    if (!shared.failures.compare_exchange_strong(none, 1)) {
        return failing == Failing::kFromThereOn;
    }
    shared.frameCount = wpp_torture::describeStack(stack, shared.frames);
    return true;
}

bool fails(void* caller) {
    if (!mainHasBegun) {
        ++takenBeforeMain;
        return false;
    }
    AllocationControl* const shared = control;
    if (shared == nullptr || unharmedScopes != 0) {
        return false;
    }
    if (shared->armed == 0 || !judge(*shared, caller)) {
        return false;
    }
    errno = ENOMEM;
    return true;
}

void countLive(std::int64_t change) {
    AllocationControl* const shared = control;
    if (shared != nullptr && (unharmedScopes == 0 || countsUnharmed)) {
        shared->live += change;
    }
}

void* taken(void* memory) {
    countLive(memory == nullptr ? 0 : 1);
    return memory;
}

void* allocate(std::size_t size, void* caller) {
    return fails(caller) ? nullptr : taken(WPP_REAL(malloc)(size));
}

void* allocateAligned(std::size_t alignment, std::size_t size, void* caller) {
    return fails(caller) ? nullptr : taken(WPP_REAL(memalign)(alignment, size));
}

bool isPowerOfTwo(std::size_t value) {
    return value != 0 && (value & (value - 1)) == 0;
}

AllocationControl* mapControl(const char* path) {
    const int descriptor = open(path, O_RDWR | O_CLOEXEC);
    if (descriptor < 0) {
        return nullptr;
    }
    void* const memory =
        mmap(nullptr, sizeof(AllocationControl), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    close(descriptor);
    return memory == MAP_FAILED ? nullptr : static_cast<AllocationControl*>(memory);
}

void warmUpUnwinder() {
    const InsideHook inside;
    wpp_torture::useUnwinder();
}

using Main = int (*)(int, char**, char**);

Main programsMain = nullptr;

int mainWithHooks(int argumentCount, char** arguments, char** environment) {
    const char* const path = std::getenv(wpp_torture::kControlVariable);
    AllocationControl* const shared = path == nullptr ? nullptr : mapControl(path);
    if (shared != nullptr) {
        warmUpUnwinder();
        shared->beforeMain = takenBeforeMain.load();
        control = shared;
    }
    mainHasBegun = true;
    return programsMain(argumentCount, arguments, environment);
}

}  // namespace

namespace wpp_torture {

void useControl(AllocationControl* newControl, Counted counted) {
    warmUpUnwinder();
    countsUnharmed = counted == Counted::kAll;
    control = newControl;
}

Unharmed::Unharmed() {
    ++unharmedScopes;
}

Unharmed::~Unharmed() {
    --unharmedScopes;
}

bool isUnharmed() {
    return unharmedScopes != 0;
}

}  // namespace wpp_torture

// This program's own forms of the calls; they take the place of the C library's, also for the C++ library's operator
// new and inside the C library itself.

extern "C" void* malloc(std::size_t size) noexcept {
    return allocate(size, WPP_CALLER);
}

extern "C" void* calloc(std::size_t count, std::size_t size) noexcept {
    return fails(WPP_CALLER) ? nullptr : taken(WPP_REAL(calloc)(count, size));
}

extern "C" void* realloc(void* memory, std::size_t size) noexcept {
    if (fails(WPP_CALLER)) {
        return nullptr;
    }
    void* const moved = WPP_REAL(realloc)(memory, size);
    if (memory == nullptr) {
        return taken(moved);
    }
    countLive(size == 0 ? -1 : 0);
    return moved;
}

extern "C" void* memalign(std::size_t alignment, std::size_t size) noexcept {
    return allocateAligned(alignment, size, WPP_CALLER);
}

extern "C" void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return allocateAligned(alignment, size, WPP_CALLER);
}

extern "C" int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept {
    if (!isPowerOfTwo(alignment) || alignment % sizeof(void*) != 0) {
        return EINVAL;
    }
    const int error = errno;
    void* const block = allocateAligned(alignment, size, WPP_CALLER);
    errno = error;
    if (block == nullptr) {
        return ENOMEM;
    }
    *memory = block;
    return 0;
}

extern "C" void free(void* memory) noexcept {
    countLive(memory == nullptr ? 0 : -1);
    WPP_REAL(free)(memory);
}

// What runs before main belongs to the loader and to the libraries' static objects; main is where a program can
// begin to answer for itself.
extern "C" int __libc_start_main(Main main, int argumentCount, char** arguments, void (*init)(),
                                 void (*fini)(), void (*loaderFini)(), void* stackEnd) {
    using Start = int (*)(Main, int, char**, void (*)(), void (*)(), void (*)(), void*);
    const auto start = reinterpret_cast<Start>(dlsym(RTLD_NEXT, "__libc_start_main"));
    programsMain = main;
    return start(&mainWithHooks, argumentCount, arguments, init, fini, loaderFini, stackEnd);
}

#if defined(WPP_BESIDE_ADDRESS_SANITIZER)

// The C library's loader keeps what it takes for the unwinder's library where the leak check does not look.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:_dl_map_object_deps\n";
}

// The sanitizer looks at each new thread's attributes, and ends the process when the C library has no memory for them.

extern "C" int pthread_getattr_np(pthread_t thread, pthread_attr_t* attributes) noexcept {
    using GetAttributes = int (*)(pthread_t, pthread_attr_t*);
    static const auto real = reinterpret_cast<GetAttributes>(dlsym(RTLD_NEXT, "pthread_getattr_np"));
    const InsideHook inside;
    return real(thread, attributes);
}

extern "C" int pthread_attr_destroy(pthread_attr_t* attributes) noexcept {
    using Destroy = int (*)(pthread_attr_t*);
    static const auto real = reinterpret_cast<Destroy>(dlsym(RTLD_NEXT, "pthread_attr_destroy"));
    const InsideHook inside;
    return real(attributes);
}

// The sanitizer's own operators do not end in malloc.

namespace {

void* newOrThrow(void* memory) {
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

std::size_t atLeastOne(std::size_t size) {
    return size == 0 ? 1 : size;
}

}  // namespace

void* operator new(std::size_t size) {
    return newOrThrow(allocate(atLeastOne(size), WPP_CALLER));
}

void* operator new[](std::size_t size) {
    return newOrThrow(allocate(atLeastOne(size), WPP_CALLER));
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(atLeastOne(size), WPP_CALLER);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(atLeastOne(size), WPP_CALLER);
}

void* operator new(std::size_t size, std::align_val_t alignment) {
    return newOrThrow(allocateAligned(static_cast<std::size_t>(alignment), atLeastOne(size), WPP_CALLER));
}

void operator delete(void* memory) noexcept {
    free(memory);
}

void operator delete[](void* memory) noexcept {
    free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
    free(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept {
    free(memory);
}

void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    free(memory);
}

void operator delete(void* memory, std::align_val_t) noexcept {
    free(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    free(memory);
}

#endif
