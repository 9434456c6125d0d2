#include "Tests/ReceiverLib/Support/Loopback.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <filesystem>
#include <iterator>
#include <stdexcept>

namespace wpp_test {

using wifi_projection_protocol::FileDescriptor;

namespace {

void require(bool succeeded, const char* call) {
    if (!succeeded) {
        throw std::runtime_error(std::string(call) + " failed");
    }
}

std::size_t countEntries(const char* directory) {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator()));
}

}  // namespace

Loopback connectLoopback() {
    const FileDescriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);  // how the socket calls take every kind of address
    require(::bind(listener.get(), generic, size) == 0, "bind()");
    require(::listen(listener.get(), 1) == 0, "listen()");
    require(::getsockname(listener.get(), generic, &size) == 0, "getsockname()");
    Loopback loopback;
    loopback.phone = FileDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    require(::connect(loopback.phone.get(), generic, size) == 0, "connect()");
    loopback.headUnit = FileDescriptor(::accept(listener.get(), nullptr, nullptr));
    require(static_cast<bool>(loopback.headUnit), "accept()");
    return loopback;
}

int handOver(FileDescriptor& descriptor) {
    const int fd = ::fcntl(descriptor.get(), F_DUPFD, 0);
    descriptor = FileDescriptor();
    return fd;
}

bool isOpen(int fd) {
    return ::fcntl(fd, F_GETFD) >= 0;
}

std::size_t countDescriptors() {
    return countEntries("/proc/self/fd");
}

std::size_t countThreads() {
    return countEntries("/proc/self/task");
}

}  // namespace wpp_test
