#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Communication/QMLocalSocketClientStream.h"
#include "Communication/QMLocalSocketServerStream.h"
#include "Pattern/QMFunctor.h"
#include "Tests/Support/Deadline.h"

namespace wpp_test {

/// A list that one thread fills and another waits for.
template <class T>
class SharedList {
public:
    void add(T value) {
        const std::lock_guard<std::mutex> guard(mutex);
        values.push_back(std::move(value));
    }

    std::vector<T> all() const {
        const std::lock_guard<std::mutex> guard(mutex);
        return values;
    }

    /// Waits until there are at least `count`. @return what there is then.
    std::vector<T> waitFor(std::size_t count) const {
        waitUntil([&] { return all().size() >= count; });
        return all();
    }

private:
    mutable std::mutex mutex;
    std::vector<T> values;
};

/// Handlers for a server stream that keep what they are called with.
class ServerRecorder {
public:
    struct Frame {
        int fd;
        std::string payload;
    };
    using Connection = std::pair<int, bool>;

    void onConnection(int fd, bool connected) { connections.add({fd, connected}); }
    void onData(int fd, const void* data, unsigned length) {
        frames.add({fd, std::string(static_cast<const char*>(data), length)});
        if (afterFrame) {
            afterFrame(fd);
        }
    }

    /// Starts the stream with these handlers; the ones that are passed live only for the call.
    bool start(QMLocalSocketServerStream& stream, const char* name,
               unsigned mode = QMLocalSocketServerStream::kReceive) {
        const MemFunHandler<QMFunctor<void, Typelist<const int, Typelist<bool, NullType>>>, ServerRecorder*,
                            void (ServerRecorder::*)(int, bool)>
            connection(this, &ServerRecorder::onConnection);
        const MemFunHandler<
            QMFunctor<void,
                      Typelist<const int, Typelist<const void* const, Typelist<unsigned int, NullType>>>>,
            ServerRecorder*, void (ServerRecorder::*)(int, const void*, unsigned)>
            data(this, &ServerRecorder::onData);
        return stream.Start({name, 16384, 1, &connection, &data}, mode);
    }

    SharedList<Frame> frames;
    SharedList<Connection> connections;
    std::function<void(int fd)> afterFrame;  // set before the start
};

/// The same for a client stream.
class ClientRecorder {
public:
    void onConnection(bool connected) { connections.add(connected); }
    void onData(const void* data, unsigned length) {
        frames.add(std::string(static_cast<const char*>(data), length));
    }

    bool start(QMLocalSocketClientStream& stream, const char* name,
               unsigned mode = QMLocalSocketClientStream::kSynchronous) {
        const MemFunHandler<QMFunctor<void, Typelist<bool, NullType>>, ClientRecorder*,
                            void (ClientRecorder::*)(bool)>
            connection(this, &ClientRecorder::onConnection);
        const MemFunHandler<QMFunctor<void, Typelist<const void* const, Typelist<unsigned int, NullType>>>,
                            ClientRecorder*, void (ClientRecorder::*)(const void*, unsigned)>
            data(this, &ClientRecorder::onData);
        return stream.Start({name, 16384, &connection, &data}, mode);
    }

    SharedList<std::string> frames;
    SharedList<bool> connections;
};

/// Whether this process has a thread of this name, of which the system keeps 15 characters.
inline bool hasThreadNamed(const std::string& name) {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file(task.path() / "comm");
        std::string found;
        if (std::getline(file, found) && found == name) {
            return true;
        }
    }
    return false;
}

}  // namespace wpp_test
