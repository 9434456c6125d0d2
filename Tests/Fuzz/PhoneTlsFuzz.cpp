// A phone's bytes on the wire, before and after the TLS handshake.
//
// Before it: whatever comes instead of a handshake ends the transport, which hands out nothing and says nothing but
// whole TLS records. After it: what a phone sends comes out as it was sent, in any pieces; bytes that slip in between
// the records end the transport. A connection is kept from one input to the next for as long as it lasts.

#include <sys/socket.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Simulator/CertificateAuthority.h"
#include "Tests/Fuzz/Support/FuzzCheck.h"
#include "Tests/Fuzz/Support/FuzzInput.h"
#include "Tests/ReceiverLib/Support/Loopback.h"
#include "Tests/ReceiverLib/Support/TlsPhone.h"
#include "private/SslContext.h"
#include "private/SslTransport.h"

namespace {

using namespace wifi_projection_protocol;
using wpp_test::FuzzInput;
using wpp_test::TlsPhone;

constexpr int kEnded = -1;
// An honest phone must not be late where a long run gets what others leave of the processors.
constexpr SslTimeLimits kGenerousLimits{std::chrono::minutes(1), std::chrono::minutes(1)};

/// The two ends of a connection; the transport takes any stream socket.
struct Ends {
    Ends() {
        std::array<int, 2> sockets{};
        FUZZ_CHECK(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()) == 0);
        headUnit = FileDescriptor(sockets[0]);
        phone = FileDescriptor(sockets[1]);
    }

    FileDescriptor headUnit;
    FileDescriptor phone;
};

void sendAll(int socket, const std::vector<std::uint8_t>& bytes) {
    const auto sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    FUZZ_CHECK(sent == static_cast<ssize_t>(bytes.size()));
}

class Wire {
public:
    void run(FuzzInput& input) {
        if (input.takeByte() % 2 == 0) {
            beforeHandshake(input.takeRest());
            return;
        }
        if (transport == nullptr) {
            connect();
        }
        while (!input.isEmpty() && transport != nullptr) {
            afterHandshake(input);
        }
    }

private:
    std::unique_ptr<SslTransport> wrap(FileDescriptor& socket) {
        auto wrapped = SslTransport::wrap(context.get(), wpp_test::handOver(socket), kGenerousLimits);
        FUZZ_CHECK(wrapped != nullptr);
        return wrapped;
    }

    void beforeHandshake(const std::vector<std::uint8_t>& bytes) {
        Ends ends;
        const auto wrapped = wrap(ends.headUnit);
        sendAll(ends.phone.get(), bytes);
        ::shutdown(ends.phone.get(), SHUT_WR);
        std::array<char, 64> taken{};
        FUZZ_CHECK(wrapped->read(taken.data(), taken.size()) == kEnded);
        FUZZ_CHECK(taken == decltype(taken)());
        FUZZ_CHECK(wrapped->write("a", 1) == kEnded);
        FUZZ_CHECK(wrapped->read(taken.data(), 0) == kEnded);
        checkRecords(ends.phone.get());
    }

    /// A record of TLS's four types. The alert that refuses the version of a hello repeats that version, whatever it is.
    static bool isRecord(std::uint8_t type, std::uint8_t majorVersion) {
        constexpr std::uint8_t kAlert = 21;
        return type >= 20 && type <= 23 && (majorVersion == 3 || type == kAlert);
    }

    /// All that the transport has said is whole records.
    static void checkRecords(int socket) {
        std::vector<std::uint8_t> said(1 << 16);
        const ssize_t count = ::recv(socket, said.data(), said.size(), 0);
        said.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        std::size_t at = 0;
        while (at < said.size()) {
            FUZZ_CHECK(said.size() - at >= 5 && isRecord(said[at], said[at + 1]));
            at += 5 + said[at + 3] * std::size_t{256} + said[at + 4];
        }
        FUZZ_CHECK(at == said.size());
    }

    void connect() {
        Ends ends;
        rawPhoneEnd = ends.phone.get();
        transport = wrap(ends.headUnit);
        phone = std::make_unique<TlsPhone>(std::move(ends.phone), phoneOptions);
        std::thread handshake([this] { FUZZ_CHECK(phone->handshake()); });
        // Reading nothing takes the head unit's side through the handshake.
        FUZZ_CHECK(transport->read(nullptr, 0) == 0);
        handshake.join();
    }

    void afterHandshake(FuzzInput& input) {
        const unsigned choice = input.takeByte();
        const std::vector<std::uint8_t> bytes = input.takeBytes(choice / 4 + std::size_t{1});
        const std::string text(bytes.begin(), bytes.end());
        if (choice == 0xFE) {
            intrude(bytes);
        } else if (text.empty()) {
            FUZZ_CHECK(transport->write(text.data(), 0) == 0);
        } else if (choice % 2 == 0) {
            fromPhone(text, input.takeByte() + 1U);
        } else {
            FUZZ_CHECK(transport->write(text.data(), static_cast<unsigned>(text.size())) ==
                       static_cast<int>(text.size()));
            FUZZ_CHECK(phone->receive() == text);
        }
    }

    void fromPhone(const std::string& text, unsigned pieceSize) {
        FUZZ_CHECK(phone->send(text));
        std::string taken;
        while (taken.size() < text.size()) {
            std::vector<char> piece(pieceSize);
            const int count = transport->read(piece.data(), pieceSize);
            FUZZ_CHECK(count > 0 && count <= static_cast<int>(pieceSize));
            taken.append(piece.data(), static_cast<std::size_t>(count));
        }
        FUZZ_CHECK(taken == text);
    }

    /// Bytes that are no record of this connection: none of them comes out, and it is over.
    void intrude(const std::vector<std::uint8_t>& bytes) {
        sendAll(rawPhoneEnd, bytes);
        ::shutdown(rawPhoneEnd, SHUT_WR);
        std::array<char, 64> taken{};
        FUZZ_CHECK(transport->read(taken.data(), taken.size()) == kEnded);
        FUZZ_CHECK(transport->write("a", 1) == kEnded);
        transport.reset();
        phone.reset();
    }

    const simulator::CertificateAuthority authority;
    const simulator::IssuedCertificate identity = authority.issue("head unit", simulator::Usage::kServer);
    const std::string ca = authority.caCertificatePem();
    const wpp_test::TlsPhoneOptions phoneOptions{authority.issue("phone", simulator::Usage::kClient), ca, 0};
    const SslContext context =
        makeServerContext({identity.certificatePem, identity.privateKeyPem, ca}, false, "CarService");
    std::unique_ptr<SslTransport> transport;
    std::unique_ptr<TlsPhone> phone;
    int rawPhoneEnd = -1;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Wire wire;
    FuzzInput input(data, size);
    wire.run(input);
    return 0;
}
