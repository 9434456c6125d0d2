#include "private/SslTransport.h"

#include "private/SocketBio.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace wifi_projection_protocol {

namespace {

using std::chrono::milliseconds;

constexpr short kStepDone = 0;
constexpr short kStepFailed = -1;

bool isStreamSocket(int fd) {
    int type = 0;
    socklen_t size = sizeof type;
    return ::getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_STREAM;
}

// These options make the link faster or its loss known sooner; a socket that lacks one works all the same.
void setOption(int fd, int level, int name, int value) {
    static_cast<void>(::setsockopt(fd, level, name, &value, sizeof value));
}

void setTcpOptions(int fd) {
    setOption(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    setOption(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
    setOption(fd, IPPROTO_TCP, TCP_KEEPIDLE, kKeepAliveIdleSeconds);
    setOption(fd, IPPROTO_TCP, TCP_KEEPINTVL, kKeepAliveIntervalSeconds);
    setOption(fd, IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveProbes);
}

bool makeNonBlocking(int fd) {
    const int flags = ::fcntl(fd, F_GETFL);
    const int descriptorFlags = ::fcntl(fd, F_GETFD);
    return flags >= 0 && descriptorFlags >= 0 && ::fcntl(fd, F_SETFD, descriptorFlags | FD_CLOEXEC) == 0 &&
           ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

// Rounded up, so that the last wait does not spin through a fraction of a millisecond.
int remainingTime(std::chrono::steady_clock::time_point deadline) {
    if (deadline == std::chrono::steady_clock::time_point::max()) {
        return -1;
    }
    const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

}  // namespace

std::unique_ptr<SslTransport> SslTransport::wrap(SSL_CTX* context, int fd, SslTimeLimits timeLimits) {
    std::unique_ptr<SslTransport> transport(new SslTransport(timeLimits));
    if (!isStreamSocket(fd) || !transport->prepare(context) || !makeNonBlocking(fd)) {
        return nullptr;
    }
    transport->adopt(fd);
    return transport;
}

bool SslTransport::prepare(SSL_CTX* context) {
    ssl.reset(SSL_new(context));
    BIO* bio = ssl ? makeSocketBio(socketNumber) : nullptr;
    if (bio != nullptr) {
        SSL_set_bio(ssl.get(), bio, bio);
        SSL_set_accept_state(ssl.get());
    }
    ERR_clear_error();
    return bio != nullptr;
}

void SslTransport::adopt(int fd) {
    setTcpOptions(fd);
    socketNumber = fd;
    socket = FileDescriptor(fd);
}

SslTransport::~SslTransport() {
    if (socket) {
        close();
    }
}

int SslTransport::read(void* destination, unsigned length) {
    if (!finishHandshake()) {
        return -1;
    }
    if (length == 0) {
        return 0;
    }
    std::size_t count = 0;
    const std::size_t wanted = std::min<std::size_t>(length, INT_MAX);
    const auto step = [&](SSL* tls) { return SSL_read_ex(tls, destination, wanted, &count); };
    return perform(step, Clock::time_point::max()) ? static_cast<int>(count) : -1;
}

int SslTransport::write(const void* source, unsigned length) {
    if (length > INT_MAX || !finishHandshake()) {
        return -1;
    }
    if (length == 0) {
        return 0;
    }
    const auto deadline = Clock::now() + limits.write;
    if (!takeWritingTurn(deadline)) {
        return -1;
    }
    std::size_t count = 0;
    const bool sent = perform([&](SSL* tls) { return SSL_write_ex(tls, source, length, &count); }, deadline);
    endWritingTurn();
    return sent ? static_cast<int>(length) : -1;
}

void SslTransport::close() {
    if (closed.exchange(true)) {
        return;
    }
    sayGoodbye();
    static_cast<void>(::shutdown(socket.get(), SHUT_RDWR));
}

// Tells the phone that the end is meant, if that can be done without waiting.
void SslTransport::sayGoodbye() {
    const std::unique_lock<std::mutex> lock(mutex, std::try_to_lock);
    if (lock.owns_lock() && handshake == Handshake::kDone && !writing && !broken) {
        ERR_clear_error();
        SSL_shutdown(ssl.get());
        ERR_clear_error();
    }
}

// One thread takes the handshake through; the others wait for its outcome, which comes within the time limit.
bool SslTransport::finishHandshake() {
    std::unique_lock<std::mutex> lock(mutex);
    if (handshake == Handshake::kDue) {
        handshake = Handshake::kUnderWay;
        lock.unlock();
        const bool done =
            perform([](SSL* tls) { return SSL_do_handshake(tls); }, Clock::now() + limits.handshake);
        lock.lock();
        handshake = done ? Handshake::kDone : Handshake::kFailed;
        changed.notify_all();
    }
    changed.wait(lock, [this] { return handshake != Handshake::kUnderWay; });
    return handshake == Handshake::kDone && !closed;
}

bool SslTransport::takeWritingTurn(Clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(mutex);
    if (!changed.wait_until(lock, deadline, [this] { return !writing; })) {
        return false;
    }
    writing = true;
    return true;
}

void SslTransport::endWritingTurn() {
    const std::lock_guard<std::mutex> lock(mutex);
    writing = false;
    changed.notify_all();
}

template <typename Step>
bool SslTransport::perform(Step step, Clock::time_point deadline) {
    for (;;) {
        const short outcome = attempt(step);
        if (outcome == kStepDone) {
            return true;
        }
        if (outcome == kStepFailed || !await(outcome, deadline)) {
            close();
            return false;
        }
    }
}

template <typename Step>
short SslTransport::attempt(Step step) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (closed || broken) {
        return kStepFailed;
    }
    ERR_clear_error();
    const int result = step(ssl.get());
    const int error = result == 1 ? SSL_ERROR_NONE : SSL_get_error(ssl.get(), result);
    ERR_clear_error();
    switch (error) {
        case SSL_ERROR_NONE:
            return kStepDone;
        case SSL_ERROR_WANT_READ:
            return POLLIN;
        case SSL_ERROR_WANT_WRITE:
            return POLLOUT;
        default:
            broken = true;
            return kStepFailed;
    }
}

// A socket that is shut down is ready at once, whatever it is watched for.
// @return false when the deadline is over or the transport is closed.
bool SslTransport::await(short events, Clock::time_point deadline) const {
    pollfd watched{socket.get(), events, 0};
    for (;;) {
        const int ready = ::poll(&watched, 1, remainingTime(deadline));
        if (ready > 0) {
            return !closed && Clock::now() < deadline;
        }
        if (ready == 0 || errno != EINTR) {
            return false;
        }
    }
}

}  // namespace wifi_projection_protocol
