#include <unistd.h>

#include <memory>
#include <optional>
#include <string>

#include "Tests/Support/Deadline.h"
#include "Tests/Torture/AcceptedOutcomes.h"
#include "Tests/Torture/CallScene.h"
#include "Tests/Torture/Scenarios.h"
#include "Tests/Torture/StreamScene.h"

namespace wpp_torture {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kTorturedLimit{250};
constexpr milliseconds kLimit{kPatienceMs};

/// A stream that does not serve may need another start; then it has to serve.
void restart(Trial& trial, Answerer& answerer) {
    trial.endsWith(kDeadUntilRestart);
    answerer.stream.Stop();
    unlink("S");
    trial.require(answerer.start() && isAnswered(kLimit), "the server does not serve after another start");
}

void serverLife(Trial& trial) {
    const Scene scene;
    Answerer answerer;
    trial.begin();
    trial.told(answerer.start());
    trial.expect(isAnswered(kTorturedLimit), "the server does not answer");
    trial.end();
    if (!isAnswered(milliseconds(1000))) {
        restart(trial, answerer);
    }
    answerer.stream.Stop();
}

/// @return whether the peer's own words come back, whatever else comes before.
bool isEchoed(wpp_test::FramedPeer& peer, const std::string& text, milliseconds limit) {
    const Unharmed unharmed;
    const wpp_test::Deadline deadline(limit);
    if (!peer.isConnected() || !peer.sendFrame(text)) {
        return false;
    }
    while (std::optional<std::string> frame = peer.receiveFrame(deadline.remaining())) {
        if (*frame == text) {
            return true;
        }
    }
    return false;
}

void serverExchanges(Trial& trial) {
    const Scene scene;
    Answerer answerer;
    trial.require(answerer.start(), "the server does not start");
    std::optional<wpp_test::FramedPeer> peer;
    {
        const Unharmed unharmed;
        peer = wpp_test::FramedPeer::connectTo("S", kLimit);
    }
    trial.require(isEchoed(*peer, "first", kLimit), "the server does not answer");
    trial.begin();
    trial.expect(isEchoed(*peer, "short", kTorturedLimit), "the server does not answer");
    trial.expect(isEchoed(*peer, std::string(5000, 'x'), kTorturedLimit), "the server does not answer");
    answerer.stream.broadcast("all", 3);
    trial.end();
    if (!isEchoed(*peer, "last", milliseconds(1000))) {
        trial.endsWith(peer->waitForClose(milliseconds(200)) ? kPeerLost : kTornFrame);
    }
    peer->close();
    trial.require(isAnswered(kLimit), "the next peer is not served");
    answerer.stream.Stop();
}

/// A client stream whose requests are told apart, so that a reply to another one is noticed.
class Client {
public:
    Client() {
        peer = harmless([] { return std::make_unique<wpp_test::AnsweringPeer>("S", echo); });
    }
    ~Client() {
        asker.Stop();
        const Unharmed unharmed;
        peer.reset();
    }

    void onConnection(bool connected) { isConnected = connected; }
    void onData(const void*, unsigned) {}

    bool start() {
        using Connection =
            MemFunHandler<QMFunctor<void, Typelist<bool, NullType>>, Client*, void (Client::*)(bool)>;
        using Data =
            MemFunHandler<QMFunctor<void, Typelist<const void* const, Typelist<unsigned int, NullType>>>,
                          Client*, void (Client::*)(const void*, unsigned int)>;
        isConnected = false;
        const Connection connection(this, &Client::onConnection);
        const Data data(this, &Client::onData);
        return asker.Start({"S", 16384, &connection, &data}, QMLocalSocketClientStream::kSynchronous) &&
               asker.hasThread();
    }

    bool connects() {
        return comes([this] { return isConnected.load(); });
    }

    /// One exchange of each kind. @return whether both were answered.
    bool exchange(Trial& trial, int limitMs) {
        const std::string request = "request " + std::to_string(++requests);
        char reply[16384] = {};
        unsigned length = 0;
        const int first = asker.communicate(request.data(), sizeOf(request), reply, &length, limitMs);
        trial.require(first == 0 || request == std::string(reply, length), "a reply to another request came");
        const std::string other = "request " + std::to_string(++requests);
        void* created = nullptr;
        const int second =
            asker.communicateWithCreateBuff(other.data(), sizeOf(other), &created, &length, limitMs);
        trial.require(second == 0 || other == std::string(static_cast<char*>(created), length),
                      "a reply to another request came");
        delete[] static_cast<std::uint8_t*>(created);
        return first > 0 && second > 0;
    }

    void stop() { asker.Stop(); }

private:
    static unsigned sizeOf(const std::string& text) { return static_cast<unsigned>(text.size()); }
    static std::optional<std::string> echo(const std::string& frame) { return frame; }

    std::unique_ptr<wpp_test::AnsweringPeer> peer;
    QMLocalSocketClientStream asker;
    std::atomic<bool> isConnected{false};
    int requests = 0;
};

void expectExchanges(Trial& trial, Client& client) {
    if (client.exchange(trial, kPatienceMs)) {
        return;
    }
    trial.endsWith(kDeadUntilRestart);
    client.stop();
    trial.require(client.start() && client.connects(), "the client does not connect after another start");
    trial.require(client.exchange(trial, kPatienceMs), "the client does not exchange after another start");
}

void clientLife(Trial& trial) {
    const Scene scene;
    Client client;
    trial.begin();
    trial.told(client.start());
    const bool connected =
        !trial.wasRefused() && wpp_test::waitUntil([&] { return client.connects(); }, kTorturedLimit);
    trial.expect(connected, "the client does not connect");
    trial.end();
    if (trial.wasRefused()) {
        trial.require(client.start(), "the client does not start afterwards");
    }
    client.connects();
    expectExchanges(trial, client);
}

void clientExchanges(Trial& trial) {
    const Scene scene;
    Client client;
    trial.require(client.start() && client.connects(), "the client does not connect");
    trial.begin();
    for (int i = 0; i < 2; ++i) {
        trial.told(client.exchange(trial, static_cast<int>(kTorturedLimit.count())));
    }
    trial.end();
    expectExchanges(trial, client);
}

/// As clientExchanges, at length: a connection that was lost or is not in step any more ends it.
void manyExchanges(Trial& trial) {
    constexpr int kExchanges = 40;
    const Scene scene;
    Client client;
    trial.require(client.start() && client.connects(), "the client does not connect");
    trial.begin();
    bool succeeded = true;
    for (int i = 0; i < kExchanges && succeeded; ++i) {
        succeeded = client.exchange(trial, static_cast<int>(kTorturedLimit.count()));
    }
    trial.told(succeeded);
    trial.end();
    expectExchanges(trial, client);
}

/// Frames of all sizes to a server that sends them back.
void manyFrames(Trial& trial) {
    constexpr std::size_t kFrames = 15;
    const Scene scene;
    Answerer answerer;
    trial.require(answerer.start(), "the server does not start");
    wpp_test::FramedPeer peer = harmless([] { return wpp_test::FramedPeer::connectTo("S", kLimit); });
    trial.require(isEchoed(peer, "first", kLimit), "the server does not answer");
    trial.begin();
    bool succeeded = true;
    for (std::size_t i = 0; i < kFrames && succeeded; ++i) {
        succeeded = isEchoed(peer, std::string(1 + 37 * i, static_cast<char>('a' + i)), kTorturedLimit);
    }
    trial.expect(succeeded, "the server does not answer");
    trial.end();
    if (!isEchoed(peer, "last", milliseconds(1000))) {
        trial.endsWith(peer.waitForClose(milliseconds(200)) ? kPeerLost : kTornFrame);
    }
    peer.close();
    trial.require(isAnswered(kLimit), "the next peer is not served");
    answerer.stream.Stop();
}

/// Signals of two events, waited for one by one and together.
void manySignals(Trial& trial) {
    constexpr int kSignals = 30;
    QMEvent first;
    QMEvent second;
    QMEvent* both[] = {&first, &second};
    trial.begin();
    for (int i = 0; i < kSignals; ++i) {
        trial.told(first.SetEvent() == 1);
        trial.told(QMEvent::WaitEvent(&first, 0) == QMEvent::kSignalled);
        trial.told(first.SetEvent() == 1 && second.SetEvent() == 1);
        trial.told(QMEvent::MultiWait(2, both, 0, true) == QMEvent::kSignalled);
    }
    trial.end();
    QMEvent::Drain(&first);
    QMEvent::Drain(&second);
    trial.require(first.SetEvent() == 1 && second.SetEvent() == 1, "an event cannot be set afterwards");
    trial.require(QMEvent::MultiWait(2, both, kPatienceMs, true) == QMEvent::kSignalled,
                  "the events cannot be waited for afterwards");
}

}  // namespace

std::vector<Scenario> streamCallScenarios() {
    return {
        {"server-life", serverLife},       {"server-exchanges", serverExchanges},
        {"client-life", clientLife},       {"client-exchanges-again", clientExchanges},
        {"many-exchanges", manyExchanges}, {"many-signals", manySignals},
        {"many-frames", manyFrames},
    };
}

}  // namespace wpp_torture
