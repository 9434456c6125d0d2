// The client stream's framing, in both modes, against a peer that says anything and leaves at any time.
//
// An exchange gets the reply that lies at the front of the peer's bytes and no byte more; a reply that is empty, too
// large or cut off fails and costs exactly its bytes; nothing is written behind the reply buffer, which has the size
// that was announced. A receiving stream hands on each whole frame, and connects again when the peer has left.

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Communication/QMLocalSocketClientStream.h"
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

using wpp_test::FramedListener;
using wpp_test::FramedPeer;
using wpp_test::FuzzInput;

/// The largest reply that an exchange takes, and the largest frame that the program finds memory for.
constexpr std::uint32_t kReceiveLimit = 48;
constexpr std::uint32_t kLargestFrame = 64;

/// More bytes of one peer bring nothing new, only more frames.
constexpr std::size_t kLongestStream = 96;
constexpr std::size_t kPrefix = sizeof(std::uint32_t);
// The peer reads the requests when all have been sent; the smallest 277 fill the buffer between the two.
constexpr unsigned kMostExchanges = 100;

std::uint32_t lengthOf(const std::string& frame) {
    std::uint32_t length = 0;
    std::memcpy(&length, frame.data(), kPrefix);
    return length;
}

/// A stream that is connected to a peer, and the peer.
class Link {
public:
    explicit Link(QMLocalSocketClientStream::Mode streamMode, bool withHandlers = true)
        : mode(streamMode), handled(withHandlers) {
        FUZZ_CHECK(!stream.Start({nullptr, 0, nullptr, nullptr}, mode));
        start();
    }

    void start() {
        using Connection = QMFunctor<void, Typelist<bool, NullType>>;
        using Data = QMFunctor<void, Typelist<const void* const, Typelist<unsigned, NullType>>>;
        const MemFunHandler<Connection, Link*, void (Link::*)(bool)> connection(this, &Link::onConnection);
        const MemFunHandler<Data, Link*, void (Link::*)(const void*, unsigned)> data(this, &Link::onData);
        FUZZ_CHECK(stream.Start({path.c_str(), static_cast<int>(kReceiveLimit),
                                 handled ? &connection : nullptr, handled ? &data : nullptr},
                                mode));
        accept();
    }

    /// A start whose thread finds no socket.
    void startInVain() {
        FUZZ_CHECK(stream.Start({path.c_str(), static_cast<int>(kReceiveLimit), nullptr, nullptr}, mode));
        FUZZ_CHECK(wpp_test::waitUntil([this] { return stream.hasBegun(); }) && stream.lacksSocket());
    }

    /// The connection that the stream makes by itself.
    void accept() {
        // One wait is shorter here than it asks to be.
        FUZZ_CHECK(wpp_test::waitUntil([this] {
            peer = listener->accept();
            return peer.isConnected();
        }));
        waitFor([this] { return isConnected || !handled; });
    }

    /// Nobody listens until the stream has tried in vain: it pauses ahead of the first attempt and after each.
    void acceptLate() {
        const std::size_t enough = wpp_test::pauses() + 3;
        listener.reset();
        peer.close();
        FUZZ_CHECK(wpp_test::waitUntil([enough] { return wpp_test::pauses() >= enough; }));
        FUZZ_CHECK(::unlink(path.c_str()) == 0);
        listener.emplace(path);
        accept();
    }

    void restart() {
        peer.close();
        stream.Stop();
        start();
    }

    template <class Predicate>
    void waitFor(Predicate predicate) {
        std::unique_lock<std::mutex> lock(mutex);
        FUZZ_CHECK(changed.wait_for(lock, wpp_test::kGenerousLimit, predicate));
    }

    unsigned countLosses() {
        const std::lock_guard<std::mutex> guard(mutex);
        return losses;
    }

    std::vector<std::string> takeFrames() {
        const std::lock_guard<std::mutex> guard(mutex);
        return std::move(frames);
    }

    FramedPeer peer;
    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex.
    bool isConnected = false;
    unsigned losses = 0;
    std::vector<std::string> frames;

private:
    void onConnection(bool connected) {
        const std::lock_guard<std::mutex> guard(mutex);
        isConnected = connected;
        losses += connected ? 0 : 1;
        changed.notify_all();
    }

    void onData(const void* data, unsigned length) {
        const std::lock_guard<std::mutex> guard(mutex);
        frames.emplace_back(static_cast<const char*>(data), length);
    }

    const QMLocalSocketClientStream::Mode mode;
    const bool handled;
    const wpp_test::TemporaryDirectory directory;
    const std::string path = (directory.path() / "socket").string();
    std::optional<FramedListener> listener{path};

public:
    QMLocalSocketClientStream stream;  // goes first: it calls back
};

/// Exchanges on one thread: the peer's bytes are on their way before the stream asks for them, and a peer that owes
/// some has left.
class Exchanges {
public:
    void run(FuzzInput& input) {
        for (unsigned i = 0; i < kMostExchanges && !input.isEmpty() && !hasLeft; ++i) {
            doOne(input);
        }
        checkRequests();
        if (hasLeft || !pending.empty()) {
            link.restart();
            pending.clear();
            hasLeft = false;
        }
    }

private:
    void doOne(FuzzInput& input) {
        const unsigned choice = input.takeByte();
        say(input.takeText(input.takeByte()));
        const std::string request = input.takeText(choice / 16);
        wpp_test::forgetLog();
        switch (choice % 16) {
            case 0:
                return refuse();
            case 1:
                return tell(request);
            case 2:
                return leave();
            default:
                return choice % 2 == 0 ? exchange(request) : exchangeIntoOwnBuffer(request);
        }
    }

    void say(const std::string& bytes) {
        FUZZ_CHECK(link.peer.sendBytes(bytes));
        pending += bytes;
    }

    void leave() {
        ::shutdown(link.peer.socket(), SHUT_WR);
        hasLeft = true;
        if (pending.empty()) {
            // The end is noticed by the next exchange, and reported.
            const unsigned before = link.countLosses();
            std::uint8_t reply[kReceiveLimit];
            FUZZ_CHECK(link.stream.communicate("a", 1, reply, nullptr, -1) == 0);
            requests += wpp_test::frameOf("a");
            FUZZ_CHECK(link.countLosses() == before + 1 && wpp_test::logLines("recv: no data\n") == 1);
            void* buffer = nullptr;
            FUZZ_CHECK(link.stream.communicate("a", 1, reply, nullptr, -1) == 0);
            FUZZ_CHECK(link.stream.communicateWithCreateBuff("a", 1, &buffer, nullptr, -1) == 0);
            FUZZ_CHECK(link.stream.send("a", 1) == 0 && wpp_test::logLines("Not connected\n") == 2);
        }
    }

    void refuse() {
        std::uint8_t reply[kReceiveLimit];
        void* buffer = nullptr;
        FUZZ_CHECK(link.stream.communicate(nullptr, 1, reply, nullptr, 0) == 0);
        FUZZ_CHECK(link.stream.communicate("a", 1, nullptr, nullptr, 0) == 0);
        FUZZ_CHECK(link.stream.communicateWithCreateBuff(nullptr, 1, &buffer, nullptr, 0) == 0);
        FUZZ_CHECK(link.stream.communicateWithCreateBuff("a", 1, nullptr, nullptr, 0) == 0);
        FUZZ_CHECK(link.stream.send(nullptr, 1) == 0 && link.stream.send("a", 0xFFFFFFFFU) == 0);
        FUZZ_CHECK(link.stream.communicate("a", kLargestFrame, reply, nullptr, 0) == 0);
        FUZZ_CHECK(link.stream.communicateWithCreateBuff("a", kLargestFrame, &buffer, nullptr, 0) == 0);
        FUZZ_CHECK(buffer == nullptr && wpp_test::logLines() == 8);
    }

    void tell(const std::string& request) {
        const char* bytes = request.empty() ? nullptr : request.data();
        FUZZ_CHECK(link.stream.send(bytes, static_cast<unsigned>(request.size())) ==
                   static_cast<int>(request.size() + kPrefix));
        requests += wpp_test::frameOf(request);
    }

    /// Takes what an exchange reads off the pending bytes; what there is no room for, it takes by the next one. A peer
    /// that owes bytes leaves, since they would be waited for without limit. @return whether there is a whole reply, of
    /// this length.
    bool takeReply(std::uint32_t largest, std::uint32_t& length, std::string& reply) {
        if (pending.size() < kPrefix) {
            if (!pending.empty()) {
                pending.clear();
                endSaying();
            }
            return false;
        }
        length = lengthOf(pending);
        pending.erase(0, kPrefix);
        if (length == 0) {
            return false;
        }
        if (pending.size() < length) {
            pending.clear();
            endSaying();
            return false;
        }
        reply = pending.substr(0, length);
        pending.erase(0, length);
        return length <= largest;
    }

    void endSaying() {
        ::shutdown(link.peer.socket(), SHUT_WR);
        hasLeft = true;
    }

    void exchange(const std::string& request) {
        const bool anything = !pending.empty();
        std::uint32_t length = 0;
        std::string expected;
        const bool isWhole = takeReply(kReceiveLimit, length, expected);
        // Memory of exactly the announced size, so that one byte too many is noticed.
        const auto reply = std::make_unique<std::uint8_t[]>(kReceiveLimit);
        unsigned replyLength = 7;
        unsigned* const whereTo = request.empty() ? nullptr : &replyLength;
        const int sent = link.stream.communicate(request.data(), static_cast<unsigned>(request.size()),
                                                 reply.get(), whereTo, 0);
        requests += wpp_test::frameOf(request);
        FUZZ_CHECK(sent == static_cast<int>(isWhole ? request.size() + kPrefix : 0));
        FUZZ_CHECK(wpp_test::logLines("poll: timeout\n") == (anything ? 0U : 1U));
        FUZZ_CHECK(wpp_test::logLines("recv: large data\n") == (length > kReceiveLimit ? 1U : 0U));
        FUZZ_CHECK(isWhole == (wpp_test::logLines() == 0));
        if (isWhole) {
            FUZZ_CHECK(replyLength == (whereTo == nullptr ? 7 : length));
            FUZZ_CHECK(std::memcmp(reply.get(), expected.data(), length) == 0);
        }
    }

    void exchangeIntoOwnBuffer(const std::string& request) {
        const bool anything = !pending.empty();
        std::uint32_t length = 0;
        std::string expected;
        const bool isWhole = takeReply(kLargestFrame, length, expected);
        void* buffer = nullptr;
        unsigned replyLength = 7;
        const int sent = link.stream.communicateWithCreateBuff(
            request.data(), static_cast<unsigned>(request.size()), &buffer, &replyLength, 0);
        const std::unique_ptr<std::uint8_t[]> reply(static_cast<std::uint8_t*>(buffer));
        requests += wpp_test::frameOf(request);
        FUZZ_CHECK(sent == static_cast<int>(isWhole ? request.size() + kPrefix : 0));
        FUZZ_CHECK(wpp_test::logLines("poll: timeout\n") == (anything ? 0U : 1U));
        FUZZ_CHECK(wpp_test::logLines("recv buffer : NULL\n") == (length > kLargestFrame ? 1U : 0U));
        FUZZ_CHECK((reply != nullptr) == isWhole && isWhole == (wpp_test::logLines() == 0));
        if (isWhole) {
            FUZZ_CHECK(replyLength == length && std::memcmp(reply.get(), expected.data(), length) == 0);
        }
    }

    /// The peer has got every request, whole and in order.
    void checkRequests() {
        std::string received(requests.size(), '\0');
        const ssize_t count = ::recv(link.peer.socket(), received.data(), received.size(), MSG_DONTWAIT);
        FUZZ_CHECK(requests.empty() || count == static_cast<ssize_t>(requests.size()));
        FUZZ_CHECK(received == requests);
        requests.clear();
    }

    Link link{QMLocalSocketClientStream::kSynchronous};
    std::string pending;   // said by the peer, not taken yet
    std::string requests;  // what the peer must have got
    bool hasLeft = false;
};

/// A stream that receives on its own thread.
class Receiving {
public:
    void run(FuzzInput& input) {
        const std::string bytes = input.takeText(kLongestStream);
        wpp_test::forgetLog();
        link.takeFrames();
        const unsigned before = link.countLosses();
        std::uint8_t reply[kReceiveLimit];
        FUZZ_CHECK(link.stream.communicate("a", 1, reply, nullptr, 0) == 0);
        FUZZ_CHECK(wpp_test::logLines("communicate method : ASYNC\n") == 1);

        FUZZ_CHECK(link.peer.sendBytes(bytes));
        ::shutdown(link.peer.socket(), SHUT_WR);
        link.waitFor([this, before] { return link.losses == before + 1; });
        FUZZ_CHECK(link.takeFrames() == framesOf(bytes));
        link.accept();
    }

private:
    static std::vector<std::string> framesOf(std::string bytes) {
        std::vector<std::string> frames;
        while (bytes.size() >= kPrefix) {
            const std::uint32_t length = lengthOf(bytes);
            bytes.erase(0, kPrefix);
            if (bytes.size() < length) {
                break;
            }
            if (length > 0 && length <= kLargestFrame) {
                frames.push_back(bytes.substr(0, length));
            }
            bytes.erase(0, length);
        }
        return frames;
    }

    Link link{QMLocalSocketClientStream::kAsynchronous};
};

/// The same without handlers: what comes is dropped, and the stream connects again all the same.
class Dropping {
public:
    void run(FuzzInput& input) {
        const unsigned choice = input.takeByte();
        const bool isLate = choice == 0xFF;
        if (choice == 0xFE) {
            wpp_test::spoil(wpp_test::SpoiltCall::kPoll, {EIO});
            FUZZ_CHECK(wpp_test::waitUntil(wpp_test::nothingIsSpoilt));
        }
        FUZZ_CHECK(link.peer.sendBytes(input.takeText(kLongestStream)));
        if (isLate) {
            return link.acceptLate();
        }
        if (choice == 0xFD) {
            // The connection is made with the second socket.
            wpp_test::spoil(wpp_test::SpoiltCall::kSocket, {EMFILE});
        }
        link.peer.close();
        link.accept();
        FUZZ_CHECK(wpp_test::nothingIsSpoilt());
    }

private:
    Link link{QMLocalSocketClientStream::kAsynchronous, false};
};

/// Exchanges in which calls fail. The peer says what it has to say ahead of them and then no more, so that nothing is
/// waited for; once it has come again, an exchange gets its reply.
class Failing {
public:
    void run(FuzzInput& input) {
        wpp_test::forgetLog();
        for (unsigned i = 0; i < 3; ++i) {
            FUZZ_CHECK(link.peer.sendBytes(wpp_test::frameOf(input.takeText(input.takeByte() % kMostSaid))));
        }
        ::shutdown(link.peer.socket(), SHUT_WR);
        for (unsigned i = 0; i < 4; ++i) {
            const unsigned call = input.takeByte();
            constexpr wpp_test::SpoiltCall kCalls[] = {
                wpp_test::SpoiltCall::kRecv, wpp_test::SpoiltCall::kSend, wpp_test::SpoiltCall::kPoll};
            wpp_test::spoil(kCalls[call % 3], wpp_test::fatesFrom(input.takeByte()));
            exchange((call & 0x80U) != 0);
            wpp_test::spoilNothing();
        }
        comeAgain();
    }

private:
    static constexpr std::size_t kMostSaid = 100;

    void exchange(bool intoOwnBuffer) {
        std::uint8_t reply[kReceiveLimit];
        if (intoOwnBuffer) {
            void* buffer = nullptr;
            static_cast<void>(link.stream.communicateWithCreateBuff("ask", 3, &buffer, nullptr, 0));
            delete[] static_cast<std::uint8_t*>(buffer);
        } else {
            static_cast<void>(link.stream.communicate("ask", 3, reply, nullptr, 0));
        }
    }

    /// The first try finds no socket.
    void comeAgain() {
        link.peer.close();
        link.stream.Stop();
        wpp_test::spoil(wpp_test::SpoiltCall::kSocket, {EMFILE});
        link.startInVain();
        wpp_test::spoilNothing();
        link.start();
        std::uint8_t reply[kReceiveLimit];
        unsigned length = 0;
        FUZZ_CHECK(link.peer.sendBytes(wpp_test::frameOf("answer")));
        FUZZ_CHECK(link.stream.communicate("ask", 3, reply, &length, 0) == 3 + kPrefix);
        FUZZ_CHECK(length == 6 && std::memcmp(reply, "answer", length) == 0);
    }

    Link link{QMLocalSocketClientStream::kSynchronous};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Exchanges exchanges;
    static Receiving receiving;
    static Dropping dropping;
    static Failing failing;
    const wpp_test::ArrayLimit limit(kLargestFrame);
    FuzzInput input(data, size);
    const unsigned choice = input.takeByte();
    if (choice == 0xEE) {
        failing.run(input);
        return 0;
    }
    switch (choice % 8) {
        case 0:
            receiving.run(input);
            break;
        case 1:
            dropping.run(input);
            break;
        default:
            exchanges.run(input);
            break;
    }
    return 0;
}
