#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "Benchmarks/RoundTrip/Support/Carrier.h"
#include "Benchmarks/RoundTrip/Support/ServerProcess.h"
#include "Benchmarks/RoundTrip/Support/Sockets.h"

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kPeers[] = {1, 2, 4, 8, 16, 32};
constexpr double kTimePerCount = 0.2;  // as a part of the round's
constexpr double kWarmUp = 0.2;        // as a part of the count's

/// Peers that all send at once and then wait for their acknowledgements.
class Peers {
public:
    explicit Peers(std::string socketName) : name(std::move(socketName)) {}
    ~Peers() {
        for (const int socket : sockets) {
            close(socket);
        }
    }
    Peers(const Peers&) = delete;
    Peers& operator=(const Peers&) = delete;

    void growTo(std::size_t count) {
        while (sockets.size() < count) {
            sockets.push_back(connectLocal(name.c_str()));
        }
    }

    /// @return the median time of a batch, in nanoseconds.
    double exchangeFor(double seconds) {
        std::vector<double> times;
        const auto end = Clock::now() + std::chrono::duration<double>(seconds);
        do {
            const auto begin = Clock::now();
            exchange();
            times.push_back(std::chrono::duration<double, std::nano>(Clock::now() - begin).count());
        } while (Clock::now() < end);
        const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
        std::nth_element(times.begin(), middle, times.end());
        return *middle;
    }

private:
    void exchange() {
        // The acknowledgement's frame is as good a message as any.
        const AckFrame message = makeAck();
        for (const int socket : sockets) {
            sendAll(socket, message.bytes, sizeof(message.bytes));
        }
        for (const int socket : sockets) {
            AckFrame ack{};
            receiveAll(socket, ack.bytes, sizeof(ack.bytes));
        }
    }

    const std::string name;
    std::vector<int> sockets;
};

void measureInFlight(const Carrier& carrier, const Run& run) {
    const ServerProcess server(carrier.serve);
    Peers peers(carrier.name);
    for (const std::size_t count : kPeers) {
        peers.growTo(count);
        const double seconds = run.seconds * kTimePerCount;
        peers.exchangeFor(seconds * kWarmUp);
        const std::string parameter = std::to_string(count) + (count == 1 ? " message" : " messages");
        printSample(run, "in-flight-time", parameter, "ns", "lower", peers.exchangeFor(seconds));
    }
}

}  // namespace

Case inFlightCase(const Carrier& carrier) {
    return {"in-flight", carrier.name, [carrier](const Run& run) { measureInFlight(carrier, run); }};
}

}  // namespace bench
