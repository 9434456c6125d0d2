#include "Tests/QMFramework92/Foundation/FileCallHooks.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <utility>

namespace {

std::atomic<int> syncs{0};
std::atomic<int> fsyncs{0};
std::atomic<wpp_test::FileCall> failing{wpp_test::FileCall::kNone};
std::atomic<int> failure{0};
wpp_test::ReaddirHook::Hook readdirHook;

int failureOf(wpp_test::FileCall call, int result) {
    if (failing != call) {
        return result;
    }
    errno = failure;
    return -1;
}

}  // namespace

// Every call of this program comes through here; the linker gives the functions their names.

extern "C" void __wrap_sync() {
    ++syncs;
}

extern "C" int __real_fsync(int descriptor);
extern "C" int __wrap_fsync(int descriptor) {
    ++fsyncs;
    return failureOf(wpp_test::FileCall::kFsync, __real_fsync(descriptor));
}

extern "C" int __real_close(int descriptor);
extern "C" int __wrap_close(int descriptor) {
    const bool isForWriting = (fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_WRONLY;
    const int result = __real_close(descriptor);
    return isForWriting ? failureOf(wpp_test::FileCall::kClose, result) : result;
}

extern "C" int __real_fclose(std::FILE* stream);
extern "C" int __wrap_fclose(std::FILE* stream) {
    return failureOf(wpp_test::FileCall::kFclose, __real_fclose(stream));
}

// The name that readdir has where file offsets have 64 bits.
extern "C" dirent* __real_readdir64(DIR* directory);
extern "C" dirent* __wrap_readdir64(DIR* directory) {
    dirent* const entry = __real_readdir64(directory);
    return readdirHook ? readdirHook(directory, entry) : entry;
}

namespace wpp_test {

int syncCount() {
    return syncs;
}

int fsyncCount() {
    return fsyncs;
}

FailingFileCall::FailingFileCall(FileCall call, int error) {
    failure = error;
    failing = call;
}

FailingFileCall::~FailingFileCall() {
    failing = FileCall::kNone;
}

ReaddirHook::ReaddirHook(Hook hook) {
    readdirHook = std::move(hook);
}

ReaddirHook::~ReaddirHook() {
    readdirHook = nullptr;
}

}  // namespace wpp_test
