#include <future>
#include <memory>
#include <string>

#include "Simulator/CertificateAuthority.h"
#include "Tests/ReceiverLib/Support/Loopback.h"
#include "Tests/ReceiverLib/Support/TlsPhone.h"
#include "Tests/Torture/CallScene.h"
#include "Tests/Torture/ScenarioTools.h"
#include "Tests/Torture/Scenarios.h"
#include "private/SslContext.h"
#include "private/SslTransport.h"

namespace wpp_torture {

namespace {

using namespace wifi_projection_protocol;
using std::chrono::milliseconds;

const std::string kQuestion(3000, 'q');
const std::string kAnswer(3000, 'a');

/// One head unit and one phone for all runs.
class Identities {
public:
    static const Identities& get() {
        static const Identities identities;
        return identities;
    }

    SSL_CTX* context() const { return server.get(); }
    wpp_test::TlsPhoneOptions phone() const { return {phoneIdentity, ca.caCertificatePem(), 0}; }

private:
    Identities()
        : headUnit(ca.issue("head unit", simulator::Usage::kServer)),
          phoneIdentity(ca.issue("phone", simulator::Usage::kClient)),
          server(makeServerContext({headUnit.certificatePem, headUnit.privateKeyPem, ca.caCertificatePem()},
                                   false, "service")) {}

    const simulator::CertificateAuthority ca;
    const simulator::IssuedCertificate headUnit;
    const simulator::IssuedCertificate phoneIdentity;
    const SslContext server;
};

bool receivesAll(wpp_test::TlsPhone& phone, const std::string& expected) {
    std::string received;
    while (received.size() < expected.size()) {
        const std::string more = phone.receive();
        if (more.empty()) {
            return false;
        }
        received += more;
    }
    return received == expected;
}

/// The phone's part, on a thread of its own.
std::future<bool> startPhone(FileDescriptor socket, int rounds) {
    return std::async(std::launch::async,
                      [connected = std::make_shared<FileDescriptor>(std::move(socket)), rounds] {
                          wpp_test::TlsPhone phone(std::move(*connected), Identities::get().phone());
                          bool served = phone.handshake();
                          for (int round = 0; round < rounds && served; ++round) {
                              served = phone.send(kQuestion) && receivesAll(phone, kAnswer);
                          }
                          return served;
                      });
}

/// @return whether the question was heard and the answer sent.
bool answerOne(SslTransport& transport) {
    std::string heard;
    char bytes[1000];
    while (heard.size() < kQuestion.size()) {
        const int count = transport.read(bytes, sizeof(bytes));
        if (count < 0) {
            return false;
        }
        heard.append(bytes, static_cast<std::size_t>(count));
    }
    return heard == kQuestion && transport.write(kAnswer.data(), static_cast<unsigned>(kAnswer.size())) > 0;
}

/// The head unit's part. @return whether every question was answered.
bool answer(int fd, milliseconds limit, int rounds) {
    const std::unique_ptr<SslTransport> transport =
        SslTransport::wrap(Identities::get().context(), fd, {limit, limit});
    if (transport == nullptr) {
        const FileDescriptor refused(fd);
        return false;
    }
    bool answered = true;
    for (int round = 0; round < rounds && answered; ++round) {
        answered = answerOne(*transport);
    }
    return answered;
}

/// One connection. @return whether questions and answers have passed over it, unharmed.
bool converses(Trial* tortured, milliseconds limit, int rounds) {
    wpp_test::Loopback loopback = harmless([] { return wpp_test::connectLoopback(); });
    std::future<bool> phone = harmless([&] { return startPhone(std::move(loopback.phone), rounds); });
    if (tortured != nullptr) {
        tortured->begin();
    }
    const bool answered = answer(wpp_test::handOver(loopback.headUnit), limit, rounds);
    if (tortured != nullptr) {
        tortured->end();
    }
    const bool understood = harmless([&] { return phone.get(); });
    if (tortured != nullptr) {
        tortured->told(answered);
        tortured->require(answered == understood || !understood, "the phone has an answer that nobody sent");
    }
    return answered && understood;
}

void converse(Trial& trial, int rounds) {
    harmless([] { return Identities::get().context(); });
    trial.expect(converses(&trial, milliseconds(300), rounds), "the phone is not served");
    trial.require(converses(nullptr, milliseconds(kPatienceMs), 1), "the next phone is not served");
}

void tlsTransport(Trial& trial) {
    converse(trial, 1);
}

void tlsConversation(Trial& trial) {
    constexpr int kRounds = 16;
    converse(trial, kRounds);
}

}  // namespace

std::vector<Scenario> libraryCallScenarios() {
    return {{"tls-transport", tlsTransport}, {"tls-conversation", tlsConversation}};
}

}  // namespace wpp_torture
