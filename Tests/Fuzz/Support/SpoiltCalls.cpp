// This program's own forms of the socket calls, which can be told to fail or to move one byte only.

#include "Tests/Fuzz/Support/SpoiltCalls.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <map>
#include <mutex>

namespace {

std::mutex mutex;
std::map<wpp_test::SpoiltCall, std::deque<int>> fatesOf;  // guarded by mutex
thread_local bool isSpared = false;

/// @return whether the call fails, with errno.
bool fails(int fate) {
    errno = fate > 0 ? fate : errno;
    return fate > 0;
}

std::size_t sizeBy(int fate, std::size_t size) {
    return fate == wpp_test::kOneByte ? std::min<std::size_t>(size, 1) : size;
}

}  // namespace

void wpp_test::spoil(SpoiltCall call, std::vector<int> fates) {
    const std::lock_guard<std::mutex> guard(mutex);
    fatesOf[call].assign(fates.begin(), fates.end());
}

std::vector<int> wpp_test::fatesFrom(unsigned bits) {
    constexpr int kFates[] = {kAsEver, kOneByte, EINTR, ECONNRESET};
    return {kFates[bits & 3U], kFates[bits >> 2U & 3U], kFates[bits >> 4U & 3U], kFates[bits >> 6U & 3U]};
}

void wpp_test::spoilNothing() {
    const std::lock_guard<std::mutex> guard(mutex);
    fatesOf.clear();
}

bool wpp_test::nothingIsSpoilt() {
    const std::lock_guard<std::mutex> guard(mutex);
    return std::all_of(fatesOf.begin(), fatesOf.end(),
                       [](const auto& fates) { return fates.second.empty(); });
}

void wpp_test::spareThisThread() {
    isSpared = true;
}

int wpp_test::nextFate(SpoiltCall call) {
    const std::lock_guard<std::mutex> guard(mutex);
    const auto fates = fatesOf.find(call);
    if (isSpared || fates == fatesOf.end() || fates->second.empty()) {
        return kAsEver;
    }
    const int fate = fates->second.front();
    fates->second.pop_front();
    return fate;
}

extern "C" ssize_t recv(int socket, void* buffer, std::size_t size, int flags) {
    const int fate = wpp_test::nextFate(wpp_test::SpoiltCall::kRecv);
    return fails(fate) ? -1 : recvfrom(socket, buffer, sizeBy(fate, size), flags, nullptr, nullptr);
}

extern "C" ssize_t send(int socket, const void* data, std::size_t size, int flags) {
    const int fate = wpp_test::nextFate(wpp_test::SpoiltCall::kSend);
    return fails(fate) ? -1 : sendto(socket, data, sizeBy(fate, size), flags, nullptr, 0);
}

extern "C" int accept4(int socket, sockaddr* address, socklen_t* size, int flags) {
    const int fate = wpp_test::nextFate(wpp_test::SpoiltCall::kAccept);
    return fails(fate) ? -1 : static_cast<int>(syscall(SYS_accept4, socket, address, size, flags));
}

extern "C" int socket(int domain, int type, int protocol) noexcept {
    const int fate = wpp_test::nextFate(wpp_test::SpoiltCall::kSocket);
    return fails(fate) ? -1 : static_cast<int>(syscall(SYS_socket, domain, type, protocol));
}
