#include "Benchmarks/RoundTrip/Support/Acceptor.h"

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

#include "Benchmarks/RoundTrip/Support/Processor.h"
#include "Benchmarks/RoundTrip/Support/ServerProcess.h"
#include "Benchmarks/RoundTrip/Support/Tcp.h"
#include "Tests/Support/OwnNetwork.h"

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kClientHost = 2;
constexpr double kWarmUp = 0.2;  // as a part of the time

/// One connection, until the server has closed it.
void visit() {
    const int socket = connectTcp(kClientHost);
    char nothing = 0;
    static_cast<void>(recv(socket, &nothing, sizeof(nothing), 0));
    close(socket);
}

int visitFor(double seconds) {
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    int visits = 0;
    do {
        visit();
        ++visits;
    } while (Clock::now() < end);
    return visits;
}

void measureAccept(const Acceptor& acceptor, const Run& run) {
    static_cast<void>(wpp_test::enterOwnNetwork());
    const ServerProcess server(acceptor.serve);
    visitFor(run.seconds * kWarmUp);
    const double before = processorTime(server.id());
    const int visits = visitFor(run.seconds);
    const double spent = processorTime(server.id()) - before;
    printSample(run, "tcp-accept-cpu", "1 client", "ns", "lower", spent / visits);
}

}  // namespace

Case acceptCase(const Acceptor& acceptor) {
    return {"accept", acceptor.name, [acceptor](const Run& run) { measureAccept(acceptor, run); }};
}

}  // namespace bench
