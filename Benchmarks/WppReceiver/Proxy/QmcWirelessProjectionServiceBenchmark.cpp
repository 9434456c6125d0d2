// A command received and dispatched by the control service, and a notification encoded and sent by it, each until the
// answer has come: the time of both ends, and how often memory is taken. The controller is a socket in this process
// that takes none.

#include "Proxy/QmcWirelessProjectionService.h"

#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "Benchmarks/Support/HeapCount.h"
#include "Benchmarks/Support/OneCpu.h"
#include "LibWpp/ControlMessages.h"
#include "Tests/Support/OwnNetwork.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace wifi_projection_protocol;

constexpr const char* kCommandSocket = "WPP_SOCKET_TO_WPP";
constexpr const char* kNotificationSocket = "WPP_SOCKET_FROM_WPP";
constexpr unsigned kDeviceId = 7;
constexpr std::array<std::uint8_t, 5> kHandled{1, 0, 0, 0, 1};

sockaddr_un addressOf(const char* name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name, std::strlen(name));
    return address;
}

/// The bytes of a message's frame.
std::vector<std::uint8_t> frameOf(WppIPCMessageCore&& message) {
    message.serialize();
    const std::uint32_t length = message.archive.getSize();
    std::vector<std::uint8_t> frame(sizeof(length) + length);
    std::memcpy(frame.data(), &length, sizeof(length));
    std::memcpy(frame.data() + sizeof(length), message.archive.getBuffer(), length);
    return frame;
}

/// The controller's connection for its commands.
class CommandSender {
public:
    CommandSender() : descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_un address = addressOf(kCommandSocket);
        while (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    ~CommandSender() { close(descriptor); }
    CommandSender(const CommandSender&) = delete;
    CommandSender& operator=(const CommandSender&) = delete;

    void send(const std::vector<std::uint8_t>& frame) const {
        static_cast<void>(!::send(descriptor, frame.data(), frame.size(), 0));
    }
    /// @return whether the receiver answered that it has handled the command.
    bool isAnswered() const {
        std::array<std::uint8_t, 5> reply{};
        return recv(descriptor, reply.data(), reply.size(), MSG_WAITALL) > 0 && reply == kHandled;
    }

private:
    const int descriptor;
};

/// The controller's end for notifications, which answers each one.
class NotificationAnswerer {
public:
    NotificationAnswerer() : listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_un address = addressOf(kNotificationSocket);
        static_cast<void>(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
        listen(listener, 1);
        thread = std::thread([this] { answerAll(); });
    }
    /// Ends when the receiver has closed its connection.
    ~NotificationAnswerer() {
        thread.join();
        close(listener);
    }
    NotificationAnswerer(const NotificationAnswerer&) = delete;
    NotificationAnswerer& operator=(const NotificationAnswerer&) = delete;

private:
    void answerAll() const {
        const int peer = accept(listener, nullptr, nullptr);
        std::uint32_t length = 0;
        std::array<std::uint8_t, 4096> payload;
        while (recv(peer, &length, sizeof(length), MSG_WAITALL) == sizeof(length) &&
               length <= payload.size()) {
            recv(peer, payload.data(), length, MSG_WAITALL);
            static_cast<void>(!send(peer, kHandled.data(), kHandled.size(), 0));
        }
        close(peer);
    }

    const int listener;
    std::thread thread;
};

/// The memory that each iteration has taken; what else goes on in the process is too rare to count.
void reportTakes(benchmark::State& state, std::uint64_t before) {
    const auto taken = static_cast<double>(wpp_benchmark::heapTakes() - before);
    state.counters["allocations"] =
        std::round(taken / static_cast<double>(std::max<std::int64_t>(1, state.iterations())));
}

void enterPlace(wpp_test::TemporaryDirectory& directory) {
    static const bool hasNetwork = wpp_test::enterOwnNetwork();
    benchmark::DoNotOptimize(hasNetwork);
    directory.enter();
}

void command(benchmark::State& state) {
    const wpp_benchmark::OneCpu oneCpu;
    wpp_test::TemporaryDirectory directory;
    enterPlace(directory);
    QmcWirelessProjectionService service;
    service.openServer();
    const CommandSender sender;
    // The start is not answered, but what follows it waits for it.
    sender.send(frameOf(StartWifiProjectionProtocolSerializer()));
    const std::vector<std::uint8_t> frame = frameOf(ReplyCanStartProjectionSerializer(kDeviceId, 1));
    const std::uint64_t before = wpp_benchmark::heapTakes();
    for ([[maybe_unused]] const auto unused : state) {
        sender.send(frame);
        if (!sender.isAnswered()) {
            state.SkipWithError("the command was not handled");
            break;
        }
    }
    reportTakes(state, before);
    service.closeServer();
}
BENCHMARK(command)->MeasureProcessCPUTime()->UseRealTime()->Name("command-dispatch/9 B/ours");

template <class Notify>
void notification(benchmark::State& state, Notify notify) {
    const wpp_benchmark::OneCpu oneCpu;
    wpp_test::TemporaryDirectory directory;
    enterPlace(directory);
    const NotificationAnswerer answerer;
    QmcWirelessProjectionService service;
    service.openClient();
    const std::uint64_t before = wpp_benchmark::heapTakes();
    for ([[maybe_unused]] const auto unused : state) {
        notify(service);
    }
    reportTakes(state, before);
    service.closeClient();
}

void shortNotification(benchmark::State& state) {
    notification(state, [](QmcWirelessProjectionService& service) {
        service.OnStartProjectionResponse(kDeviceId, 0);
    });
}
BENCHMARK(shortNotification)->MeasureProcessCPUTime()->UseRealTime()->Name("notification-send/9 B/ours");

void textNotification(benchmark::State& state) {
    const std::string texts[] = {"a phone", "its maker", "its model"};
    notification(state, [&texts](QmcWirelessProjectionService& service) {
        service.OnReadyForProjection(kDeviceId, texts[0], texts[1], texts[2]);
    });
}
BENCHMARK(textNotification)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Name("notification-send/three short strings/ours");

}  // namespace
