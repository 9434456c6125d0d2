// The built process with too few descriptors: at every limit from the smallest with which it starts.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "LibWpp/SppMessages.h"
#include "Tests/Support/Deadline.h"
#include "Tests/WppReceiver/Faults/ForkedWorkers.h"
#include "Tests/WppReceiver/Process/HeadUnit.h"

namespace {

using namespace std::chrono_literals;
using namespace wifi_projection_protocol;
using namespace wpp_test;

constexpr std::size_t kLimitsAboveTheFirst =
    64;  // some 30 until everything is served, and as many above that
constexpr std::size_t kWorkers = 17;
constexpr auto kLinkLimit = 1000ms;   // for the local sockets, once there are descriptors
constexpr auto kPortLimit = 10000ms;  // for the TCP port, which is opened again every ten seconds
constexpr auto kMeasured = 1000ms;
constexpr int kMoreAttempts = 2;
constexpr double kMostProcessorShare = 0.05;
constexpr const char* kControlSocket = "WPP_SOCKET_TO_WPP";
constexpr const char* kBluetoothSocket = "WPP_SOCKET_FROM_BT";
constexpr const char* kUuid = "4DE17A0052CB11E6BDF40800200C9A66";

/// The seconds of processor time that a process has had.
double processorTime(pid_t process) {
    constexpr int kFieldsAheadOfTime = 11;  // behind the name
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    const std::string line{std::istreambuf_iterator<char>(file), {}};
    std::istringstream fields(line.substr(line.rfind(')') + 1));
    std::string skipped;
    for (int i = 0; i < kFieldsAheadOfTime; ++i) {
        fields >> skipped;
    }
    double user = 0;
    double system = 0;
    fields >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

/// A connection to a socket file that does not wait for a place in the queue.
FileDescriptor knock(const char* name) {
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, name, sizeof(address.sun_path) - 1);
    static_cast<void>(connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)));
    return socket;
}

FileDescriptor knockAtPort() {
    FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(30516);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    static_cast<void>(connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)));
    return socket;
}

/// What was measured at one limit.
struct Measured {
    bool wasStarted = false;  // the protocol, before there was no descriptor left
    double processorShare = 0;
    std::chrono::milliseconds control{0};
    std::chrono::milliseconds bluetooth{0};
    std::chrono::milliseconds port{0};
};

/// The receiver with so many descriptors and no more, among peers that listen for it.
class ScarceReceiver {
public:
    explicit ScarceReceiver(std::size_t limit)
        : descriptorLimit(limit),
          identity(ca.issue("head unit", simulator::Usage::kServer)),
          phoneIdentity(ca.issue("phone", simulator::Usage::kClient)) {
        directory.enter();
        controller = std::make_unique<AnsweringPeer>("WPP_SOCKET_FROM_WPP");
        bluetooth = std::make_unique<AnsweringPeer>("WPP_SOCKET_TO_BT");
        receiver =
            std::make_unique<ReceiverProcess>(directory.path(), ReceiverProcess::Standard::kLogFile, limit);
    }
    ~ScarceReceiver() { directory.leave(); }

    bool hasStarted() const {
        constexpr auto kEndOfALoader = 500ms;
        return !receiver->waitForExit(kEndOfALoader).has_value();
    }

    /// @return the complaint; empty for none.
    std::string passThrough(Measured& measured) {
        startProtocol(300ms);
        if (!exhaust()) {
            return "is not exhausted with " + std::to_string(receiver->descriptors());
        }
        measured.wasStarted = isProtocolStarted;
        measured.processorShare = measureProcessor();
        if (!receiver->isAlive()) {
            return "has died";
        }
        if (measured.processorShare >= kMostProcessorShare) {
            return "spins: " + std::to_string(measured.processorShare);
        }
        release();
        const Stopwatch watch;
        const bool controlServed =
            isAnswered(kControlSocket, encode(SetProjectionPortInfoSerializer("127.0.0.1", 1)));
        measured.control = watch.elapsed();
        const bool bluetoothServed = isAnswered(kBluetoothSocket, bluetoothBytes());
        measured.bluetooth = watch.elapsed();
        if (!controlServed || !bluetoothServed) {
            return complaintOf(measured, controlServed, bluetoothServed, false);
        }
        startProtocol(kGenerousLimit);
        const bool portServed = waitUntil([this] { return isPhoneServed(); }, 2 * kPortLimit);
        measured.port = watch.elapsed();
        return complaintOf(measured, controlServed, bluetoothServed, portServed);
    }

    std::optional<int> terminate() {
        FramedPeer peer = FramedPeer::connectTo(kControlSocket);
        peer.sendFrame(headerOnly(1));
        return receiver->waitForExit();
    }

private:
    static std::string complaintOf(const Measured& measured, bool control, bool bluetoothLink, bool port) {
        if (!control || measured.control > kLinkLimit) {
            return "serves the controller after " + std::to_string(measured.control.count()) + " ms";
        }
        if (!bluetoothLink || measured.bluetooth > kLinkLimit) {
            return "serves the Bluetooth process after " + std::to_string(measured.bluetooth.count()) + " ms";
        }
        if (!port || measured.port > kPortLimit) {
            return "serves the phones after " + std::to_string(measured.port.count()) + " ms";
        }
        return "";
    }

    static std::string bluetoothBytes() {
        static const std::uint8_t bytes[] = {1};
        return encode(RecvSppDataSerializer(2, kUuid, bytes, sizeof(bytes)));
    }

    static bool isAnswered(const char* name, const std::string& message) {
        FramedPeer peer = FramedPeer::connectTo(name);
        return peer.sendFrame(message) && peer.receiveFrame().has_value();
    }

    /// Once; a controller that is not served in time leaves it for later.
    void startProtocol(std::chrono::milliseconds limit) {
        if (isProtocolStarted) {
            return;
        }
        FramedPeer peer = FramedPeer::connectTo(kControlSocket, limit);
        peer.sendFrame(encode(StartWifiProjectionProtocolSerializer(
            wifi_discovery::WifiChannelType{1}, {36}, common::HeadUnitInfo(), identity.certificatePem,
            identity.privateKeyPem, ca.caCertificatePem())));
        peer.sendFrame(encode(SetProjectionPortInfoSerializer("127.0.0.1", 1)));
        isProtocolStarted = peer.receiveFrame(limit) == std::string(1, '\1');
    }

    /// Peers and phones come until nobody gets in any more.
    bool exhaust() {
        return waitUntil([this] {
            const std::size_t before = receiver->descriptors();
            for (int i = 0; i < 4; ++i) {
                crowd.push_back(knock(kControlSocket));
                crowd.push_back(knock(kBluetoothSocket));
                crowd.push_back(knockAtPort());
            }
            std::this_thread::sleep_for(120ms);  // a stream looks at its queue every 100 ms
            return receiver->descriptors() + 1 >= descriptorLimit && receiver->descriptors() >= before;
        });
    }

    double measureProcessor() const {
        const double before = processorTime(receiver->pid());
        const Stopwatch watch;
        std::this_thread::sleep_for(kMeasured);  // the span over which processor time is measured
        return (processorTime(receiver->pid()) - before) /
               std::chrono::duration<double>(watch.elapsed()).count();
    }

    void release() const {
        rlimit plenty{};
        ASSERT_EQ(prlimit(receiver->pid(), RLIMIT_NOFILE, nullptr, &plenty), 0);
        plenty.rlim_cur = plenty.rlim_max;
        ASSERT_EQ(prlimit(receiver->pid(), RLIMIT_NOFILE, &plenty, nullptr), 0);
    }

    bool isPhoneServed() const {
        FileDescriptor socket = knockAtPort();
        pollfd watched{socket.get(), POLLOUT, 0};
        int error = 0;
        socklen_t size = sizeof(error);
        if (poll(&watched, 1, 200) != 1 ||
            getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0) {
            return false;
        }
        fcntl(socket.get(), F_SETFL, 0);
        TlsPhone phone(std::move(socket), TlsPhoneOptions{phoneIdentity, ca.caCertificatePem(), 0});
        return phone.handshake();
    }

    const std::size_t descriptorLimit;
    const simulator::CertificateAuthority ca;
    const simulator::IssuedCertificate identity;
    const simulator::IssuedCertificate phoneIdentity;
    TemporaryDirectory directory;
    std::unique_ptr<AnsweringPeer> controller;
    std::unique_ptr<AnsweringPeer> bluetooth;
    std::unique_ptr<ReceiverProcess> receiver;
    std::vector<FileDescriptor> crowd;
    bool isProtocolStarted = false;
};

std::size_t smallestLimit() {
    constexpr std::size_t kFarTooMany = 100;
    std::size_t limit = 1;
    while (limit < kFarTooMany && !ScarceReceiver(limit).hasStarted()) {
        ++limit;
    }
    return limit;
}

/// @return the complaint; empty for none.
std::string passThroughOnce(std::size_t limit) {
    ScarceReceiver receiver(limit);
    Measured measured;
    const std::string complaint = receiver.passThrough(measured);
    std::printf("limit %zu%s: processor %.1f %%, controller %lld ms, Bluetooth %lld ms, phones %lld ms\n",
                limit, measured.wasStarted ? ", started" : "", 100 * measured.processorShare,
                static_cast<long long>(measured.control.count()),
                static_cast<long long>(measured.bluetooth.count()),
                static_cast<long long>(measured.port.count()));
    std::fflush(stdout);
    if (complaint.empty() && receiver.terminate() != 0) {
        return "does not end on command 1";
    }
    return complaint;
}

void passThrough(std::size_t limit, WorkReport& report) {
    report.begin("limit " + std::to_string(limit));
    std::string complaint = passThroughOnce(limit);
    // A loaded machine may be late, but not every time.
    for (int again = 0; again < kMoreAttempts && !complaint.empty(); ++again) {
        complaint = passThroughOnce(limit);
    }
    if (complaint.empty()) {
        report.pass();
    } else {
        report.fail(complaint);
    }
}

TEST(ScarceDescriptors, AtEveryLimitItNeitherSpinsNorDiesAndServesOnceThereAreMore) {
    const std::size_t first = smallestLimit();
    const WorkResult result = runForked(kWorkers, [first](std::size_t worker, WorkReport& report) {
        for (std::size_t above = worker; above <= kLimitsAboveTheFirst; above += kWorkers) {
            passThrough(first + above, report);
        }
    });
    std::printf("%zu of %zu limits, from %zu on\n", result.passed, kLimitsAboveTheFirst + 1, first);
    for (const std::string& failure : result.failures) {
        ADD_FAILURE() << failure;
    }
    EXPECT_EQ(result.passed, kLimitsAboveTheFirst + 1);
}

}  // namespace
