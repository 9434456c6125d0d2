#include "Tests/Simulator/Strangers/TlsWire.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace simulator {

namespace {

constexpr std::size_t kRecordHeader = 5;
constexpr Milliseconds kPatience{30000};

using Bio = std::unique_ptr<BIO, decltype(&BIO_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

void require(bool condition, const char* step) {
    if (!condition) {
        ERR_clear_error();
        throw std::runtime_error(std::string("a stranger's TLS: ") + step);
    }
}

Bio openText(const std::string& text) {
    return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), BIO_free);
}

void identify(SSL_CTX* context, const IssuedCertificate& papers) {
    const Certificate certificate(
        PEM_read_bio_X509(openText(papers.certificatePem).get(), nullptr, nullptr, nullptr), X509_free);
    const Key key(PEM_read_bio_PrivateKey(openText(papers.privateKeyPem).get(), nullptr, nullptr, nullptr),
                  EVP_PKEY_free);
    require(SSL_CTX_use_certificate(context, certificate.get()) == 1, "certificate");
    require(SSL_CTX_use_PrivateKey(context, key.get()) == 1, "private key");
}

void addChain(SSL_CTX* context, const std::string& chain, int length) {
    if (length > 0) {
        const Certificate next(PEM_read_bio_X509(openText(chain).get(), nullptr, nullptr, nullptr),
                               X509_free);
        for (int i = 0; i < length; ++i) {
            require(SSL_CTX_add1_chain_cert(context, next.get()) == 1, "chain");
        }
    }
}

}  // namespace

std::vector<std::string> recordsOf(std::string_view flight) {
    std::vector<std::string> records;
    while (flight.size() >= kRecordHeader) {
        const std::size_t high = static_cast<unsigned char>(flight[3]);
        const std::size_t low = static_cast<unsigned char>(flight[4]);
        const std::size_t size = std::min(flight.size(), kRecordHeader + high * 256 + low);
        records.emplace_back(flight.substr(0, size));
        flight.remove_prefix(size);
    }
    return records;
}

TlsWire::Context TlsWire::makeContext(const TlsManner& manner) {
    Context context(SSL_CTX_new(TLS_client_method()));
    require(context != nullptr, "context");
    SSL_CTX_set_security_level(context.get(), 0);
    require(SSL_CTX_set_min_proto_version(context.get(), manner.version) == 1, "version");
    require(SSL_CTX_set_max_proto_version(context.get(), manner.version) == 1, "version");
    if (!manner.ciphers.empty()) {
        require(SSL_CTX_set_cipher_list(context.get(), manner.ciphers.c_str()) == 1, "ciphers");
    }
    if (manner.papers) {
        identify(context.get(), *manner.papers);
    }
    addChain(context.get(), manner.chain, manner.chainLength);
    return context;
}

TlsWire::TlsWire(Wire connected, const TlsManner& manner)
    : wire(std::move(connected)),
      ssl(SSL_new(makeContext(manner).get())),
      fromNetwork(BIO_new(BIO_s_mem())),
      toNetwork(BIO_new(BIO_s_mem())) {
    require(ssl && fromNetwork != nullptr && toNetwork != nullptr, "session");
    SSL_set_bio(ssl.get(), fromNetwork, toNetwork);
    SSL_set_app_data(ssl.get(), this);
    SSL_set_info_callback(ssl.get(), onInfo);
    SSL_set_connect_state(ssl.get());
    if (manner.session) {
        require(SSL_set_session(ssl.get(), manner.session.get()) == 1, "session to resume");
    }
}

std::string TlsWire::helloOf(const TlsManner& manner) {
    TlsWire mute{Wire(UniqueFd()), manner};
    SSL_do_handshake(mute.ssl.get());
    ERR_clear_error();
    return mute.takeOutgoing();
}

bool TlsWire::handshake(std::size_t wholeRecords) {
    allowedRecords = wholeRecords;
    const Deadline deadline(kPatience);
    bool done = false;
    bool open = true;
    while (!done && open && !isCut && !deadline.passed()) {
        ERR_clear_error();
        const int result = SSL_do_handshake(ssl.get());
        done = result == 1;
        open = done || SSL_get_error(ssl.get(), result) == SSL_ERROR_WANT_READ;
        flush();
        if (!done && open && !isCut) {
            advance(deadline.remaining());
            open = !wire.hasEnded();
        }
    }
    ERR_clear_error();
    return done && !isCut;
}

bool TlsWire::send(std::string_view bytes) {
    return wire.send(encrypt(bytes));
}

std::string TlsWire::encrypt(std::string_view bytes) {
    ERR_clear_error();
    SSL_write(ssl.get(), bytes.data(), static_cast<int>(bytes.size()));
    ERR_clear_error();
    return takeOutgoing();
}

void TlsWire::sayGoodbye() {
    SSL_shutdown(ssl.get());
    ERR_clear_error();
    flush();
}

bool TlsWire::renegotiate() {
    const bool begun = SSL_renegotiate(ssl.get()) == 1;
    SSL_do_handshake(ssl.get());
    ERR_clear_error();
    return begun && flush();
}

bool TlsWire::updateKeys() {
    const bool begun = SSL_key_update(ssl.get(), SSL_KEY_UPDATE_NOT_REQUESTED) == 1;
    SSL_do_handshake(ssl.get());
    ERR_clear_error();
    return begun && flush();
}

std::string TlsWire::receive(std::size_t count, Milliseconds limit) {
    const Deadline deadline(limit);
    std::array<char, 4096> chunk{};
    while (plain.size() < count && !wire.hasEnded() && !deadline.passed()) {
        ERR_clear_error();
        const int got = SSL_read(ssl.get(), chunk.data(), static_cast<int>(chunk.size()));
        if (got > 0) {
            plain.append(chunk.data(), static_cast<std::size_t>(got));
        } else {
            advance(deadline.remaining());
        }
    }
    ERR_clear_error();
    return std::exchange(plain, {});
}

void TlsWire::awaitEnd(Milliseconds limit) {
    plain = receive(kAllRecords, limit);
    // The last records may have come together with the end.
    std::array<char, 4096> chunk{};
    while (SSL_read(ssl.get(), chunk.data(), static_cast<int>(chunk.size())) > 0) {
    }
    ERR_clear_error();
}

std::shared_ptr<SSL_SESSION> TlsWire::session() const {
    return {SSL_get1_session(ssl.get()), SSL_SESSION_free};
}

void TlsWire::onInfo(const SSL* ssl, int where, int value) {
    if ((where & SSL_CB_READ_ALERT) == SSL_CB_READ_ALERT) {
        const int description = value & 0xff;
        if (description != SSL_AD_CLOSE_NOTIFY) {
            static_cast<TlsWire*>(SSL_get_app_data(ssl))->lastAlert = description;
        }
    }
}

std::string TlsWire::takeOutgoing() {
    std::string bytes(BIO_ctrl_pending(toNetwork), '\0');
    if (!bytes.empty()) {
        BIO_read(toNetwork, bytes.data(), static_cast<int>(bytes.size()));
    }
    return bytes;
}

bool TlsWire::flush() {
    for (std::string& record : recordsOf(takeOutgoing())) {
        if (isCut || !sendRecord(std::move(record))) {
            return false;
        }
    }
    return true;
}

bool TlsWire::sendRecord(std::string record) {
    if (sentRecords == allowedRecords) {
        isCut = true;
        return wire.send(std::string_view(record).substr(0, record.size() / 2));
    }
    if (++sentRecords == spoiled) {
        record.back() = static_cast<char>(~record.back());
    }
    return wire.send(record);
}

void TlsWire::advance(Milliseconds limit) {
    const std::string bytes = wire.receive(limit);
    BIO_write(fromNetwork, bytes.data(), static_cast<int>(bytes.size()));
}

}  // namespace simulator
