// The server stream's framing: whatever a peer sends, in any pieces, and however it leaves. Each connection is a
// stream of bytes of its own; the stream itself is kept from one input to the next.
//
// Every frame that is whole and can be held reaches the handler, byte for byte and in order; a length of 0 costs its four
// bytes only; what is too large or cut off is logged and dropped; answers reach the peer as frames.

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "Communication/QMLocalSocketServerStream.h"
#include "Pattern/QMFunctor.h"
#include "Tests/Fuzz/Support/FuzzCheck.h"
#include "Tests/Fuzz/Support/FuzzInput.h"
#include "Tests/Fuzz/Support/LogTally.h"
#include "Tests/Fuzz/Support/QuickWaits.h"
#include "Tests/Fuzz/Support/SpoiltCalls.h"
#include "Tests/QMFramework92/Communication/FailingAllocation.h"
#include "Tests/Support/FramedPeer.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using wpp_test::FramedPeer;
using wpp_test::FuzzInput;

/// The largest frame that the program finds memory for.
constexpr std::uint32_t kLargestFrame = 64;

/// More bytes of one peer bring nothing new, only more frames.
constexpr std::size_t kLongestStream = 96;

constexpr std::size_t kMostPieces = 8;

/// Peers of one input that meet failing calls; each costs a connection.
constexpr std::size_t kMostFailedPeers = 12;

/// How the handler answers, and how the peer leaves.
enum Behaviour : unsigned {
    kAnswers = 1,
    kBroadcasts = 2,
    kVanishes = 4,
    kWaitsInVain = 32,
    kFindsNoHandlers = 24,
    kMeetsFailures = 0x78,
    kIsNotRead = 0xF8
};

/// What the handler must get of a peer's bytes, and what must be logged.
struct Model {
    explicit Model(const std::string& bytes) {
        std::size_t at = 0;
        while (bytes.size() - at >= sizeof(std::uint32_t)) {
            std::uint32_t length = 0;
            std::memcpy(&length, bytes.data() + at, sizeof(length));
            at += sizeof(length);
            if (length == 0) {
                ++empty;
                continue;
            }
            tooLarge += length > kLargestFrame ? 1 : 0;
            if (bytes.size() - at < length) {
                ++cutOff;
                return;
            }
            if (length <= kLargestFrame) {
                frames.push_back(bytes.substr(at, length));
            }
            at += length;
        }
        cutPrefixes = at < bytes.size() ? 1 : 0;
    }

    std::vector<std::string> frames;
    std::size_t empty = 0;
    std::size_t tooLarge = 0;
    std::size_t cutOff = 0;
    std::size_t cutPrefixes = 0;
};

class Scene {
public:
    Scene() {
        using Connection = QMFunctor<void, Typelist<const int, Typelist<bool, NullType>>>;
        using Data =
            QMFunctor<void, Typelist<const int, Typelist<const void* const, Typelist<unsigned, NullType>>>>;
        const MemFunHandler<Connection, Scene*, void (Scene::*)(int, bool)> connection(this,
                                                                                       &Scene::onConnection);
        const MemFunHandler<Data, Scene*, void (Scene::*)(int, const void*, unsigned)> data(this,
                                                                                            &Scene::onData);
        FUZZ_CHECK(!stream.Start({nullptr, 0, 1, nullptr, nullptr}, QMLocalSocketServerStream::kReceive));
        FUZZ_CHECK(
            stream.Start({path.c_str(), 16, 1, &connection, &data}, QMLocalSocketServerStream::kReceive));
        FUZZ_CHECK(FramedPeer::connectTo(path).isConnected());
        waitFor(hasEnded);
        FUZZ_CHECK(secondStream.Start({path.c_str(), 16, 1, &connection, &data},
                                      QMLocalSocketServerStream::kReceive));
        FUZZ_CHECK(deafStream.Start({deafPath.c_str(), 16, 1, nullptr, nullptr},
                                    QMLocalSocketServerStream::kReceive));
        FUZZ_CHECK(wpp_test::waitUntil([this] { return secondStream.hasBegun() && deafStream.hasBegun(); }));
    }

    void run(FuzzInput& input) {
        behaviour = input.takeByte();
        const std::size_t pieceSize = input.takeByte();
        const std::string bytes = input.takeText(kLongestStream);
        if ((behaviour & kIsNotRead) == kIsNotRead) {
            return runUnread(bytes);
        }
        if ((behaviour & kMeetsFailures) == kMeetsFailures) {
            return runThroughFailures(bytes);
        }
        if ((behaviour & kFindsNoHandlers) == kFindsNoHandlers) {
            return runWithoutHandlers(bytes);
        }
        const Model model(bytes);
        begin();
        const bool waitsInVain = (behaviour & kWaitsInVain) != 0;
        if (waitsInVain) {
            wpp_test::spoilNextEpollWait();
            wpp_test::spoilNextPoll();
        }
        FramedPeer peer = FramedPeer::connectTo(path);
        FUZZ_CHECK(peer.isConnected());
        if (waitsInVain) {
            waitFor(hasBegun);
            wpp_test::spoilNextPoll();
        }
        if ((behaviour & kVanishes) != 0) {
            // No answer finds its way from now on.
            ::shutdown(peer.socket(), SHUT_RD);
        }
        send(peer, bytes, std::max(pieceSize, bytes.size() / kMostPieces + 1));
        if ((behaviour & kVanishes) != 0) {
            peer.close();
            waitFor(hasEnded);
            FUZZ_CHECK(frames == model.frames);
            return;
        }
        ::shutdown(peer.socket(), SHUT_WR);
        const std::string answers = receiveAll(peer);
        waitFor(hasEnded);
        check(model, answers);
    }

private:
    /// What comes is dropped, and the peer is let go when it leaves.
    void runWithoutHandlers(const std::string& bytes) {
        FramedPeer peer = FramedPeer::connectTo(deafPath);
        FUZZ_CHECK(peer.isConnected() && peer.sendBytes(bytes));
        ::shutdown(peer.socket(), SHUT_WR);
        FUZZ_CHECK(receiveAll(peer).empty());
    }

    /// Calls fail on a stream of its own, two bytes of the input for each peer; then it serves the next one.
    void runThroughFailures(const std::string& bytes) {
        wpp_test::spareThisThread();
        Echo echo;
        startEcho(echo, bytes.empty() || bytes[0] % 2 == 0);
        for (std::size_t i = 0; i + 1 < std::min(bytes.size(), 2 * kMostFailedPeers); i += 2) {
            const auto call = static_cast<unsigned char>(bytes[i]);
            if (call % 8 == 7) {
                wpp_test::spoilNextEpollWait(2);
            } else {
                constexpr wpp_test::SpoiltCall kCalls[] = {
                    wpp_test::SpoiltCall::kRecv, wpp_test::SpoiltCall::kSend, wpp_test::SpoiltCall::kAccept,
                    wpp_test::SpoiltCall::kPoll};
                wpp_test::spoil(kCalls[call % 4],
                                wpp_test::fatesFrom(static_cast<unsigned char>(bytes[i + 1])));
            }
            askEcho(call / 8);
        }
        wpp_test::spoilNothing();
        FUZZ_CHECK(askEcho(5) == wpp_test::frameOf(std::string(5, 'e')));
        echo.stream.Stop();
        FUZZ_CHECK(::unlink(echoPath.c_str()) == 0);
    }

    /// Sends each frame back.
    struct Echo {
        void onData(int fd, const void* data, unsigned length) { stream.send(fd, data, length); }

        QMLocalSocketServerStream stream;
    };

    void startEcho(Echo& echo, bool hasSocket) {
        using Data =
            QMFunctor<void, Typelist<const int, Typelist<const void* const, Typelist<unsigned, NullType>>>>;
        const MemFunHandler<Data, Echo*, void (Echo::*)(int, const void*, unsigned)> data(&echo,
                                                                                          &Echo::onData);
        const QMLocalSocketServerStream::Config config{echoPath.c_str(), 16, 1, nullptr, &data};
        if (!hasSocket) {
            wpp_test::spoil(wpp_test::SpoiltCall::kSocket, {EMFILE});
            FUZZ_CHECK(echo.stream.Start(config, QMLocalSocketServerStream::kReceive));
            FUZZ_CHECK(wpp_test::waitUntil([&echo] { return echo.stream.hasBegun(); }));
            FUZZ_CHECK(echo.stream.lacksSocket());
        }
        FUZZ_CHECK(echo.stream.Start(config, QMLocalSocketServerStream::kReceive));
    }

    /// @return what comes back of a frame of so many bytes until the stream lets go of the peer.
    std::string askEcho(std::size_t length) {
        FramedPeer peer = FramedPeer::connectTo(echoPath);
        FUZZ_CHECK(peer.isConnected());
        // A peer that has been dropped meanwhile sends in vain.
        static_cast<void>(peer.sendBytes(wpp_test::frameOf(std::string(length, 'e'))));
        ::shutdown(peer.socket(), SHUT_WR);
        std::string all;
        char piece[256];
        for (ssize_t count = 1; count > 0;) {
            count = ::recv(peer.socket(), piece, sizeof(piece), 0);
            all.append(piece, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        }
        return all;
    }

    /// A stream that only accepts: it reads nothing of its peer, who hears of it all the same.
    void runUnread(const std::string& bytes) {
        QMLocalSocketServerStream accepting;
        FUZZ_CHECK(accepting.Start({unreadPath.c_str(), 16, 1, nullptr, nullptr},
                                   QMLocalSocketServerStream::kAcceptOnly));
        FramedPeer peer = FramedPeer::connectTo(unreadPath);
        FUZZ_CHECK(peer.isConnected() && peer.sendBytes(bytes));
        char heard = 0;
        FUZZ_CHECK(wpp_test::waitUntil([&] {
            accepting.broadcast("a", 1);
            return ::recv(peer.socket(), &heard, 1, MSG_DONTWAIT) == 1;
        }));
        accepting.Stop();
        FUZZ_CHECK(::unlink(unreadPath.c_str()) == 0);
    }

    void begin() {
        wpp_test::forgetLog();
        const std::lock_guard<std::mutex> guard(mutex);
        frames.clear();
        hasBegun = false;
        hasEnded = false;
    }

    static void send(FramedPeer& peer, const std::string& bytes, std::size_t pieceSize) {
        for (std::size_t at = 0; at < bytes.size(); at += pieceSize) {
            FUZZ_CHECK(peer.sendBytes(bytes.substr(at, pieceSize)));
        }
    }

    static std::string receiveAll(const FramedPeer& peer) {
        std::string all;
        std::vector<char> piece(4096);
        for (;;) {
            const ssize_t count = ::recv(peer.socket(), piece.data(), piece.size(), 0);
            FUZZ_CHECK(count >= 0);
            if (count == 0) {
                return all;
            }
            all.append(piece.data(), static_cast<std::size_t>(count));
        }
    }

    void waitFor(const bool& state) {
        std::unique_lock<std::mutex> lock(mutex);
        FUZZ_CHECK(changed.wait_for(lock, wpp_test::kGenerousLimit, [&state] { return state; }));
    }

    void check(const Model& model, const std::string& answers) {
        FUZZ_CHECK(frames == model.frames);
        std::string expected;
        if ((behaviour & (kAnswers | kBroadcasts)) != 0) {
            for (const std::string& frame : model.frames) {
                expected +=
                    frame.size() + sizeof(std::uint32_t) <= kLargestFrame ? wpp_test::frameOf(frame) : "";
            }
        }
        FUZZ_CHECK(answers == expected);
        FUZZ_CHECK(wpp_test::logLines("no data::recv size[0]\n") == model.empty);
        FUZZ_CHECK(wpp_test::logLinesFrom("catch exception. SocketName[") >= model.tooLarge);
        FUZZ_CHECK(wpp_test::logLines("recv: error\n") == model.cutOff);
        FUZZ_CHECK(wpp_test::logLines("recv: error for data length\n") == model.cutPrefixes);
    }

    void onConnection(int fd, bool connected) {
        const std::lock_guard<std::mutex> guard(mutex);
        FUZZ_CHECK(hasBegun != connected && !hasEnded);
        client = connected ? fd : client;
        FUZZ_CHECK(fd == client);
        hasBegun = true;
        hasEnded = !connected;
        changed.notify_all();
    }

    void onData(int fd, const void* data, unsigned length) {
        {
            const std::lock_guard<std::mutex> guard(mutex);
            FUZZ_CHECK(hasBegun && !hasEnded && fd == client);
            frames.emplace_back(static_cast<const char*>(data), length);
        }
        const bool fits = length + sizeof(std::uint32_t) <= kLargestFrame;
        if ((behaviour & kBroadcasts) != 0) {
            stream.broadcast(data, length);
            stream.broadcast(nullptr, length);
        } else if ((behaviour & kAnswers) != 0) {
            const int sent = stream.send(fd, data, length);
            FUZZ_CHECK(sent == static_cast<int>(fits && (behaviour & kVanishes) == 0 ? length + 4 : 0));
            FUZZ_CHECK(stream.send(fd, nullptr, length) == 0 && stream.send(-1, data, length) == 0);
        }
    }

    const wpp_test::TemporaryDirectory directory;
    const std::string path = (directory.path() / "socket").string();
    const std::string unreadPath = (directory.path() / "unread").string();
    const std::string echoPath = (directory.path() / "echo").string();
    const std::string deafPath = (directory.path() / "deaf").string();
    unsigned behaviour = 0;  // written while no peer is connected

    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex.
    std::vector<std::string> frames;
    int client = -1;
    bool hasBegun = false;
    bool hasEnded = false;

    QMLocalSocketServerStream stream;
    QMLocalSocketServerStream deafStream;
    QMLocalSocketServerStream secondStream;  // of a name that is taken; it must disturb nobody
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Scene scene;
    const wpp_test::ArrayLimit limit(kLargestFrame);
    FuzzInput input(data, size);
    scene.run(input);
    return 0;
}
