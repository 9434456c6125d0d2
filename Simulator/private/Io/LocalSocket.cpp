#include "Simulator/private/Io/LocalSocket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace simulator {

namespace {

constexpr int kBacklog = 300;  // one entry for each phone that may knock at once

[[noreturn]] void fail(int error, const std::string& step, const std::string& name) {
    throw std::system_error(error, std::generic_category(), step + " " + name);
}

sockaddr_un addressOf(const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.empty() || name.size() >= sizeof(address.sun_path)) {
        fail(ENAMETOOLONG, "name of the local socket", name);
    }
    std::memcpy(address.sun_path, name.c_str(), name.size());
    return address;
}

const sockaddr* generic(const sockaddr_un& address) {
    return static_cast<const sockaddr*>(static_cast<const void*>(&address));
}

UniqueFd openSocket(const std::string& name) {
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd) {
        fail(errno, "socket for", name);
    }
    return fd;
}

}  // namespace

UniqueFd listenLocal(const std::string& name) {
    const sockaddr_un address = addressOf(name);
    UniqueFd fd = openSocket(name);
    ::unlink(name.c_str());
    if (::bind(fd.get(), generic(address), sizeof(address)) != 0) {
        fail(errno, "bind", name);
    }
    if (::listen(fd.get(), kBacklog) != 0) {
        fail(errno, "listen", name);
    }
    return fd;
}

UniqueFd connectLocal(const std::string& name) {
    const sockaddr_un address = addressOf(name);
    UniqueFd fd = openSocket(name);
    if (::connect(fd.get(), generic(address), sizeof(address)) != 0) {
        fd.reset();
    }
    return fd;
}

UniqueFd acceptOne(int listener) {
    return UniqueFd(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

}  // namespace simulator
