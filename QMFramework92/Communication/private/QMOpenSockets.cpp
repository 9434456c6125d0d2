#include "Communication/QMOpenSockets.h"

#include <poll.h>
#include <sys/socket.h>

#include <new>
#include <utility>

namespace {

/// Whether a send may block: the peer has left unread what fills a good part of the socket's buffer.
bool isFull(int socket) {
    pollfd watched{socket, POLLOUT, 0};
    return ::poll(&watched, 1, 0) == 0;
}

}  // namespace

QMOpenSockets::Sockets::node_type QMOpenSockets::makeNode() {
    Sockets one;
    return one.extract(one.try_emplace(-1).first);
}

bool QMOpenSockets::reserve() {
    QMSyncGuard guard(lock);
    try {
        if (spare.empty()) {
            spare = makeNode();
        }
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

int QMOpenSockets::adopt(QMDescriptor socket) {
    QMSyncGuard guard(lock);
    const int number = socket.get();
    if (spare.empty()) {
        spare = makeNode();
    }
    spare.key() = number;
    spare.mapped() = std::move(socket);
    sockets.erase(number);
    sockets.insert(std::move(spare));
    return number;
}

void QMOpenSockets::close(int socket) {
    QMSyncGuard guard(lock);
    sockets.erase(socket);
}

void QMOpenSockets::closeAll() {
    QMSyncGuard guard(lock);
    sockets.clear();
}

bool QMOpenSockets::contains(int socket) {
    QMSyncGuard guard(lock);
    return sockets.count(socket) > 0;
}

std::vector<int> QMOpenSockets::list() {
    std::vector<int> numbers;
    appendTo(numbers);
    return numbers;
}

void QMOpenSockets::appendTo(std::vector<int>& numbers) {
    QMSyncGuard guard(lock);
    numbers.reserve(numbers.size() + sockets.size());
    for (const auto& entry : sockets) {
        numbers.push_back(entry.first);
    }
}

void QMOpenSockets::shutdownAll() {
    QMSyncGuard guard(lock);
    for (const auto& entry : sockets) {
        ::shutdown(entry.first, SHUT_RDWR);
    }
}

void QMOpenSockets::releaseBlocked() {
    QMSyncGuard guard(lock);
    for (const auto& entry : sockets) {
        ::shutdown(entry.first, isFull(entry.first) ? SHUT_RDWR : SHUT_RD);
    }
}
