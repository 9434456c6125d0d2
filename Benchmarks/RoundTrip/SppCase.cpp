#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>

#include "Benchmarks/RoundTrip/SppReceivers.h"
#include "Benchmarks/RoundTrip/Support/PrescribedStream.h"
#include "Benchmarks/RoundTrip/Support/Processor.h"
#include "Benchmarks/RoundTrip/Support/ServerProcess.h"
#include "Benchmarks/RoundTrip/Support/Sockets.h"
#include "Core/RfcommTransportInputOutput.h"
#include "LibWpp/SppMessages.h"

namespace bench {

namespace {

using namespace std::chrono_literals;
using wifi_projection_protocol::RecvSppDataSerializer;
using wifi_projection_protocol::RfcommTransportInputOutput;
using Clock = std::chrono::steady_clock;
using Counter = std::atomic<std::uint64_t>;

constexpr auto kReadLimit = 10s;
constexpr double kTimePerSize = 0.5;   // as a part of the round's
constexpr double kTimePerCount = 0.2;  // of phones, as a part of the round's
constexpr double kWarmUp = 0.2;        // as a part of the size's or the count's
constexpr unsigned kPhones[] = {1, 16, 64, 128, 254};
constexpr std::size_t kShortMessage = 16;

/// A counter that a child process shares.
class SharedCounter {
public:
    SharedCounter()
        : place(mmap(nullptr, sizeof(Counter), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        if (place == MAP_FAILED) {
            throw std::runtime_error("mmap failed");
        }
        counter = new (place) Counter(0);
    }
    ~SharedCounter() { munmap(place, sizeof(Counter)); }
    SharedCounter(const SharedCounter&) = delete;
    SharedCounter& operator=(const SharedCounter&) = delete;

    Counter& get() const { return *counter; }

private:
    void* place;
    Counter* counter = nullptr;
};

std::string receivedDataFrame(std::size_t size) {
    const std::string bytes(size, 's');
    RecvSppDataSerializer message(kSppPhone, RfcommTransportInputOutput::kServiceUuid,
                                  reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                  static_cast<std::uint32_t>(size));
    message.serialize();
    const std::uint32_t length = message.archive.getSize();
    if (length != size + kSppOverhead) {
        throw std::runtime_error("the message's layout has changed");
    }
    std::string frame(kPrefixSize, '\0');
    std::memcpy(frame.data(), &length, sizeof(length));
    return frame.append(reinterpret_cast<const char*>(message.archive.getBuffer()), length);
}

class SppSender {
public:
    explicit SppSender(Counter& bytesRead) : taken(bytesRead) {}
    ~SppSender() { close(socket); }
    SppSender(const SppSender&) = delete;
    SppSender& operator=(const SppSender&) = delete;

    /// @return bytes per second, from the first message to the read of the last one's end.
    double send(const std::string& frame, std::size_t bytesEach, double seconds) {
        const auto begin = Clock::now();
        const auto end = begin + std::chrono::duration<double>(seconds);
        const std::uint64_t before = sent;
        do {
            exchangePrescribed(socket, frame.data(), frame.size());
            sent += bytesEach;
        } while (Clock::now() < end);
        waitForReads();
        return static_cast<double>(sent - before) /
               std::chrono::duration<double>(Clock::now() - begin).count();
    }

private:
    /// Both ends share a processor: giving it away lets the reads come.
    void waitForReads() {
        const auto deadline = Clock::now() + kReadLimit;
        while (taken < sent) {
            if (Clock::now() > deadline) {
                throw std::runtime_error("sent bytes were never read");
            }
            std::this_thread::sleep_for(10us);
        }
    }

    Counter& taken;
    const int socket = connectLocal(kSppSocketName);
    std::uint64_t sent = 0;
};

void measureSpp(const SppReceiver& receiver, const Run& run) {
    struct Size {
        const char* name;
        std::size_t bytes;
    };
    const SharedCounter bytesRead;
    const ServerProcess server([&] { receiver.serve(bytesRead.get()); });
    SppSender sender(bytesRead.get());
    for (const Size size : {Size{"1 KiB", 1024}, Size{"16 KiB", 16384}}) {
        const std::string frame = receivedDataFrame(size.bytes);
        const double seconds = run.seconds * kTimePerSize;
        sender.send(frame, size.bytes, seconds * kWarmUp);
        printSample(run, "spp-throughput", size.name, "B/s", "higher",
                    sender.send(frame, size.bytes, seconds));
    }
}

/// @return nanoseconds of the processor that both ends take for each message.
double costOfMessagesOfOneOf(unsigned phones, double seconds) {
    unlink(kSppSocketName);
    const SharedCounter bytesRead;
    const SppReceiver receiver = ourSppReceiver(phones);
    const ServerProcess server([&] { receiver.serve(bytesRead.get()); });
    SppSender sender(bytesRead.get());
    const std::string frame = receivedDataFrame(kShortMessage);
    sender.send(frame, kShortMessage, seconds * kWarmUp);
    const auto spent = [&server] { return processorTime(server.id()) + processorTime(getpid()); };
    const std::uint64_t bytesBefore = bytesRead.get();
    const double spentBefore = spent();
    sender.send(frame, kShortMessage, seconds);
    const std::uint64_t messages = (bytesRead.get() - bytesBefore) / kShortMessage;
    return (spent() - spentBefore) / static_cast<double>(messages);
}

void measurePhones(const Run& run) {
    for (const unsigned phones : kPhones) {
        const std::string parameter = std::to_string(phones) + (phones == 1 ? " phone" : " phones");
        printSample(run, "spp-message-cpu", parameter, "ns", "lower",
                    costOfMessagesOfOneOf(phones, run.seconds * kTimePerCount));
    }
}

}  // namespace

Case sppCase(const SppReceiver& receiver) {
    return {"spp", receiver.name, [receiver](const Run& run) { measureSpp(receiver, run); }};
}

Case phonesCase() {
    return {"phones", "ours", measurePhones};
}

}  // namespace bench
