#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>

#include "Communication/QMLocalSocketClientStream.h"
#include "Communication/QMLocalSocketServerStream.h"
#include "Pattern/QMFunctor.h"
#include "Tests/Support/FramedPeer.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Torture/ScenarioTools.h"

namespace wpp_torture {

/// A directory of its own, which is the working directory meanwhile.
class Scene {
public:
    Scene() { directory.enter(); }
    ~Scene() { directory.leave(); }

    std::string path(const char* name) const { return (directory.path() / name).string(); }

private:
    wpp_test::TemporaryDirectory directory;
};

/// Sends each frame back that its stream receives.
class Answerer {
public:
    void onConnection(int, bool) {}
    void onData(int fd, const void* data, unsigned length) {
        ++received;
        stream.send(fd, data, length);
    }

    bool start() {
        using Connection = MemFunHandler<QMFunctor<void, Typelist<const int, Typelist<bool, NullType>>>,
                                         Answerer*, void (Answerer::*)(int, bool)>;
        using Data = MemFunHandler<
            QMFunctor<void,
                      Typelist<const int, Typelist<const void* const, Typelist<unsigned int, NullType>>>>,
            Answerer*, void (Answerer::*)(int, const void*, unsigned int)>;
        const Connection connection(this, &Answerer::onConnection);
        const Data data(this, &Answerer::onData);
        return stream.Start({"S", 16384, 1, &connection, &data}, QMLocalSocketServerStream::kReceive) &&
               stream.hasThread();
    }

    std::atomic<int> received{0};
    QMLocalSocketServerStream stream;
};

/// What a peer of the server gets for a frame of its own.
inline bool isAnswered(std::chrono::milliseconds limit) {
    const Unharmed unharmed;
    wpp_test::FramedPeer peer = wpp_test::FramedPeer::connectTo("S", limit);
    return peer.isConnected() && peer.sendFrame("question") && peer.receiveFrame(limit) == "question";
}

/// A client stream and the peer that it connects to.
class Asker {
public:
    Asker() : listener("S") {}

    void onConnection(bool connected) { isConnected = connected; }
    void onData(const void*, unsigned) {}

    bool start() {
        using Connection =
            MemFunHandler<QMFunctor<void, Typelist<bool, NullType>>, Asker*, void (Asker::*)(bool)>;
        using Data =
            MemFunHandler<QMFunctor<void, Typelist<const void* const, Typelist<unsigned int, NullType>>>,
                          Asker*, void (Asker::*)(const void*, unsigned int)>;
        const Connection connection(this, &Asker::onConnection);
        const Data data(this, &Asker::onData);
        return stream.Start({"S", 16384, &connection, &data}, QMLocalSocketClientStream::kSynchronous) &&
               stream.hasThread();
    }

    bool accept() {
        const Unharmed unharmed;
        if (!peer.isConnected()) {
            peer = listener.accept();
        }
        return peer.isConnected() && comes([this] { return isConnected.load(); });
    }

    /// One exchange of each kind. @return whether both were answered.
    bool exchange() {
        std::thread answering = startAnswering();
        char reply[16384] = {};
        unsigned length = 0;
        const int first = stream.communicate("question", 8, reply, &length, kExchangeMs);
        void* created = nullptr;
        const int second = stream.communicateWithCreateBuff("question", 8, &created, &length, kExchangeMs);
        const bool whole = first > 0 && second > 0 && length == 6 && std::memcmp(created, "answer", 6) == 0;
        delete[] static_cast<std::uint8_t*>(created);
        const Unharmed unharmed;
        done = true;
        answering.join();
        return whole;
    }

    std::thread startAnswering() {
        const Unharmed unharmed;
        done = false;
        return std::thread([this] {
            const Unharmed unharmedToo;
            while (!done) {
                if (peer.receiveFrame(std::chrono::milliseconds(5))) {
                    peer.sendFrame("answer");
                }
            }
        });
    }

    static constexpr int kExchangeMs = 500;
    std::atomic<bool> isConnected{false};
    std::atomic<bool> done{false};
    wpp_test::FramedListener listener;
    wpp_test::FramedPeer peer;
    QMLocalSocketClientStream stream;
};

}  // namespace wpp_torture
