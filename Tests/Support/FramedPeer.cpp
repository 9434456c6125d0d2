#include "Tests/Support/FramedPeer.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace wpp_test {

namespace {

constexpr int kNone = -1;

sockaddr_un addressOf(const std::filesystem::path& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string text = path.string();
    if (text.size() >= sizeof(address.sun_path)) {
        throw std::runtime_error("the socket path is too long");
    }
    std::memcpy(address.sun_path, text.data(), text.size());
    return address;
}

int openSocket() {
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        throw std::runtime_error("cannot open a socket");
    }
    return descriptor;
}

bool isReadable(int descriptor, const Deadline& deadline) {
    pollfd watched{descriptor, POLLIN, 0};
    return ::poll(&watched, 1, static_cast<int>(deadline.remaining().count())) > 0;
}

}  // namespace

std::string framePrefix(std::uint32_t length) {
    std::string bytes(sizeof(length), '\0');
    std::memcpy(bytes.data(), &length, sizeof(length));
    return bytes;
}

std::string frameOf(const std::string& payload) {
    return framePrefix(static_cast<std::uint32_t>(payload.size())) + payload;
}

FramedPeer::FramedPeer(FramedPeer&& other) noexcept : descriptor(std::exchange(other.descriptor, kNone)) {}

FramedPeer& FramedPeer::operator=(FramedPeer&& other) noexcept {
    if (this != &other) {
        close();
        descriptor = std::exchange(other.descriptor, kNone);
    }
    return *this;
}

FramedPeer FramedPeer::connectTo(const std::filesystem::path& path, std::chrono::milliseconds limit) {
    const sockaddr_un address = addressOf(path);
    FramedPeer peer(openSocket());
    const bool connected = waitUntil(
        [&] {
            return ::connect(peer.descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ==
                   0;
        },
        limit);
    if (!connected) {
        peer.close();
    }
    return peer;
}

bool FramedPeer::sendBytes(const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = ::send(descriptor, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (count < 0) {
            return false;
        }
        done += static_cast<std::size_t>(count);
    }
    return true;
}

bool FramedPeer::sendByteByByte(const std::string& bytes) {
    for (const char byte : bytes) {
        if (!sendBytes(std::string(1, byte))) {
            return false;
        }
    }
    return true;
}

std::optional<std::string> FramedPeer::receiveBytes(std::size_t count, std::chrono::milliseconds limit) {
    const Deadline deadline(limit);
    std::string bytes(count, '\0');
    std::size_t done = 0;
    while (done < count) {
        if (!isReadable(descriptor, deadline)) {
            return std::nullopt;
        }
        const ssize_t received = ::recv(descriptor, bytes.data() + done, count - done, 0);
        if (received <= 0) {
            return std::nullopt;
        }
        done += static_cast<std::size_t>(received);
    }
    return bytes;
}

std::optional<std::string> FramedPeer::receiveFrame(std::chrono::milliseconds limit) {
    std::uint32_t length = 0;
    const std::optional<std::string> prefix = receiveBytes(sizeof(length), limit);
    if (!prefix) {
        return std::nullopt;
    }
    std::memcpy(&length, prefix->data(), sizeof(length));
    return receiveBytes(length, limit);
}

bool FramedPeer::waitUntilRead(std::chrono::milliseconds limit) const {
    return waitUntil(
        [this] {
            int unread = -1;
            return ::ioctl(descriptor, TIOCOUTQ, &unread) == 0 && unread == 0;
        },
        limit);
}

bool FramedPeer::waitForClose(std::chrono::milliseconds limit) {
    const Deadline deadline(limit);
    std::array<char, 65536> dropped;
    while (isReadable(descriptor, deadline)) {
        if (::recv(descriptor, dropped.data(), dropped.size(), 0) <= 0) {
            return true;
        }
    }
    return false;
}

void FramedPeer::close() {
    if (descriptor != kNone) {
        ::close(std::exchange(descriptor, kNone));
    }
}

FramedListener::FramedListener(const std::filesystem::path& path, int backlog) : descriptor(openSocket()) {
    const sockaddr_un address = addressOf(path);
    if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(descriptor, backlog) != 0) {
        ::close(descriptor);
        throw std::runtime_error("cannot listen on the socket file");
    }
}

FramedListener::~FramedListener() {
    ::close(descriptor);
}

FramedPeer FramedListener::accept(std::chrono::milliseconds limit) {
    const Deadline deadline(limit);
    if (!isReadable(descriptor, deadline)) {
        return {};
    }
    return FramedPeer(::accept4(descriptor, nullptr, nullptr, SOCK_CLOEXEC));
}

}  // namespace wpp_test
