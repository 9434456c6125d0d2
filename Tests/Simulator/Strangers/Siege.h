#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Simulator/CertificateAuthority.h"
#include "Simulator/private/Road/ProcessFigures.h"
#include "Simulator/private/Road/Road.h"
#include "Tests/Simulator/Strangers/TlsWire.h"
#include "Tests/Simulator/Strangers/Wire.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace simulator {

/// The limit that the receiver's library sets a phone for its handshake, its greeting and each message.
constexpr Milliseconds kPhoneLimit{5000};

/// How a stranger's visit ends.
enum class Fate {
    kTurnedAway,  ///< the receiver ends the connection at once: well ahead of the limit
    kTimedOut,    ///< the receiver ends it at the limit, not earlier
    kLeft,        ///< the stranger itself has gone
};

/// What came of a visit, as the stranger saw it.
struct Visit {
    bool endedByReceiver = false;
    std::optional<int> alert;  ///< the description of the last TLS alert that it got
};

/// A stranger at the TCP port, with its name and how it has to end.
struct Stranger {
    const char* name;
    Fate fate;
    std::optional<int> alert;  ///< the TLS alert that it has to get; empty: any or none
    /// Comes from this address of its own, on a thread of its own.
    std::function<Visit(const std::string& address)> come;
};

/// The certificates of a siege, made when it begins.
struct Papers {
    CertificateAuthority authority{"Head unit authority"};
    CertificateAuthority foreign{"Foreign authority"};
    CertificateAuthority namesake{"Head unit authority"};
    IssuedCertificate receiver = authority.issue("head-unit", Usage::kServer);
    IssuedCertificate phone = authority.issue("phone", Usage::kClient);
};

/// A receiver with its controller, its Bluetooth process and one honest phone, every one a process of its
/// own, and strangers that come to it from the test.
///
/// Its end looks after the receiver: nothing of the strangers has reached the controller or the log, no
/// descriptor and no thread is left of them, and it ends with status 0 when told to.
class Siege : public testing::Test {
protected:
    Siege();
    ~Siege() override;

    void SetUp() override;
    void TearDown() override;

    /// Lets each stranger come and checks how it ends, those of limits all at once; the honest phone is
    /// served meanwhile, once for each stranger.
    void letCome(const std::vector<Stranger>& strangers);

    /// Takes the honest phone from the connection to the answer whether it may start, and checks that it takes
    /// no longer than it may. The controller hears of it, and nothing else.
    void serveHonestPhone(const std::string& meanwhile);

    /// Opens an RFCOMM channel of a device that the controller never added, and hands it to the receiver.
    Wire openRfcomm(std::uint8_t device);
    void announceRfcomm(std::uint8_t device);
    void withdrawRfcomm(std::uint8_t device);

    /// The receiver has asked for the end of the device's channel.
    void expectRfcommDropped(std::uint8_t device);

    /// Whatever has reached the controller since the last look was of the honest phone.
    void expectControllerHeardNothing();

    Papers papers;
    wpp_test::TemporaryDirectory temporary;
    std::ostringstream output;
    RoadOptions options;
    std::optional<Road> road;

private:
    void startHeadUnit();
    void startProtocol();
    void pairHonestPhone();
    void judge(const Stranger& stranger, const Visit& visit, Milliseconds after);
    ProcessFigures before;
};

/// The end of a visit: waits until the receiver has ended the connection, generously.
Visit endOf(Wire& wire);
Visit endOf(TlsWire& tls);

/// A stranger that says these bytes and waits for the end.
std::function<Visit(const std::string&)> saying(std::string bytes);

}  // namespace simulator
