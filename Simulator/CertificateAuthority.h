#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <chrono>
#include <memory>
#include <string>

namespace simulator {

/// What an issued certificate may be used for.
enum class Usage { kServer, kClient };

/// When a certificate holds, counted from the moment of issue; negative is the past.
struct Validity {
    std::chrono::seconds notBefore = std::chrono::hours(-1);
    std::chrono::seconds notAfter = std::chrono::hours(24);
};

/// A certificate and its key, both PEM texts.
struct IssuedCertificate {
    std::string certificatePem;
    std::string privateKeyPem;
};

/// A certificate authority that lives as long as the object: a fresh EC P-256 key and a self-signed
/// certificate made with it, nothing on disk. It issues certificates for the receiver and for phones, each
/// with a fresh key.
///
/// Every operation throws std::runtime_error when OpenSSL refuses. Issue from one thread at a time.
class CertificateAuthority {
public:
    explicit CertificateAuthority(const std::string& commonName = "Certificate authority");

    /// The authority's own certificate, a PEM text.
    const std::string& caCertificatePem() const { return certificatePem; }

    /// Issues a certificate that is good for `usage` and for nothing else.
    IssuedCertificate issue(const std::string& commonName, Usage usage, Validity validity = {}) const;

    /// Makes a certificate that is signed with its own key and that no authority stands behind.
    static IssuedCertificate selfSigned(const std::string& commonName, Usage usage, Validity validity = {});

private:
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key;
    std::unique_ptr<X509, decltype(&X509_free)> certificate;
    std::string certificatePem;
};

}  // namespace simulator
