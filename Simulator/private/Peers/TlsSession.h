#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace simulator {

/// What a phone brings along for TLS, all PEM texts. Without a certificate it has none to show; without a CA
/// it takes any receiver.
struct TlsCredentials {
    std::string certificate;
    std::string privateKey;
    std::string caCertificate;
};

/// The phone's side of one TLS connection (1.2 or later), without a socket: bytes in, bytes out.
///
/// Handshaking from construction, then established, and failed for good on the first error; an established
/// session may also be ended by the other side. After each call takeOutgoing() holds what has to be sent.
class TlsSession {
public:
    /// Begins the handshake. @throws std::runtime_error when OpenSSL refuses the credentials.
    explicit TlsSession(const TlsCredentials& credentials);

    /// Takes bytes from the network. @return the plain bytes that they held.
    std::string feed(std::string_view bytes);

    /// Encrypts plain bytes; before the handshake is done they are dropped.
    void write(std::string_view plain);

    /// Says goodbye, as a proper end of the connection does.
    void close();

    /// What has to go to the network now.
    std::string takeOutgoing();

    bool established() const { return done && !error; }
    bool ended() const { return peerEnded; }

    /// Why it has failed; empty while it has not.
    const std::optional<std::string>& failure() const { return error; }

    /// The protocol version, for example "TLSv1.3".
    std::string version() const { return SSL_get_version(ssl.get()); }

private:
    template <typename Type, void (*release)(Type*)>
    struct Release {
        void operator()(Type* object) const { release(object); }
    };
    using Context = std::unique_ptr<SSL_CTX, Release<SSL_CTX, SSL_CTX_free>>;
    using Session = std::unique_ptr<SSL, Release<SSL, SSL_free>>;

    static Context makeContext(const TlsCredentials& credentials);
    void advanceHandshake();
    void noteResult(int result);
    std::string readPlain();

    Context context;
    Session ssl;
    BIO* fromNetwork = nullptr;  // owned by ssl
    BIO* toNetwork = nullptr;    // owned by ssl
    bool done = false;
    bool peerEnded = false;
    std::optional<std::string> error;
};

}  // namespace simulator
