#include "private/SocketBio.h"

#include <sys/socket.h>
#include <sys/types.h>

#include <cerrno>
#include <memory>
#include <mutex>

namespace wifi_projection_protocol {

namespace {

int socketOf(BIO* bio) {
    return *static_cast<const int*>(BIO_get_data(bio));
}

bool wouldBlock() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

int writeSocket(BIO* bio, const char* bytes, int size) {
    BIO_clear_retry_flags(bio);
    const ssize_t sent = ::send(socketOf(bio), bytes, static_cast<std::size_t>(size), MSG_NOSIGNAL);
    if (sent < 0 && wouldBlock()) {
        BIO_set_retry_write(bio);
    }
    return static_cast<int>(sent);
}

int readSocket(BIO* bio, char* bytes, int size) {
    BIO_clear_retry_flags(bio);
    const ssize_t received = ::recv(socketOf(bio), bytes, static_cast<std::size_t>(size), 0);
    if (received < 0 && wouldBlock()) {
        BIO_set_retry_read(bio);
    }
    return static_cast<int>(received);
}

// Nothing is buffered here, so a flush has always succeeded; no other request applies.
long control(BIO*, int command, long, void*) {
    return command == BIO_CTRL_FLUSH ? 1 : 0;
}

struct MethodDeleter {
    void operator()(BIO_METHOD* method) const { BIO_meth_free(method); }
};
using Method = std::unique_ptr<BIO_METHOD, MethodDeleter>;

Method makeMethod() {
    Method method(BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "non-blocking socket"));
    if (method) {
        BIO_meth_set_write(method.get(), writeSocket);
        BIO_meth_set_read(method.get(), readSocket);
        BIO_meth_set_ctrl(method.get(), control);
    }
    return method;
}

// Not inside the function: what is made as the program is loaded also outlives the transports of static objects.
std::mutex making;
Method method;  // guarded by making

}  // namespace

BIO* makeSocketBio(const int& socket) {
    const std::lock_guard<std::mutex> lock(making);
    // Tried again for each transport until there is memory for it.
    if (!method) {
        method = makeMethod();
    }
    BIO* bio = method ? BIO_new(method.get()) : nullptr;
    if (bio != nullptr) {
        BIO_set_data(bio, const_cast<int*>(&socket));  // only ever read; BIO data is untyped
        BIO_set_init(bio, 1);
    }
    return bio;
}

}  // namespace wifi_projection_protocol
