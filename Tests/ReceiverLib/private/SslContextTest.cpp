#include "private/SslContext.h"

#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <memory>
#include <string>

#include "Simulator/CertificateAuthority.h"

namespace wifi_projection_protocol {
namespace {

using simulator::CertificateAuthority;
using simulator::IssuedCertificate;
using simulator::Usage;

struct Deleter {
    void operator()(BIO* bio) const { BIO_free(bio); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};

std::string encryptedKey() {
    const std::unique_ptr<EVP_PKEY, Deleter> key(EVP_EC_gen("P-256"));
    const std::unique_ptr<BIO, Deleter> bio(BIO_new(BIO_s_mem()));
    const unsigned char phrase[] = "secret";
    PEM_write_bio_PrivateKey(bio.get(), key.get(), EVP_aes_128_cbc(), phrase, 6, nullptr, nullptr);
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return std::string(text, static_cast<std::size_t>(size));
}

class SslContextMaking : public testing::Test {
protected:
    static bool isMade(const std::string& certificate, const std::string& key, const std::string& ca) {
        return makeServerContext({certificate, key, ca}, false, "service") != nullptr;
    }

    CertificateAuthority authority;
    IssuedCertificate server = authority.issue("head unit", Usage::kServer);
};

TEST_F(SslContextMaking, ValidTextsMakeOne) {
    EXPECT_TRUE(isMade(server.certificatePem, server.privateKeyPem, authority.caCertificatePem()));
}

TEST_F(SslContextMaking, AuthorityMayBeEmpty) {
    EXPECT_TRUE(isMade(server.certificatePem, server.privateKeyPem, ""));
}

TEST_F(SslContextMaking, CertificateMayBeAChain) {
    EXPECT_TRUE(isMade(server.certificatePem + authority.caCertificatePem(), server.privateKeyPem, ""));
}

TEST_F(SslContextMaking, AuthoritiesMayBeSeveral) {
    const CertificateAuthority other;
    EXPECT_TRUE(isMade(server.certificatePem, server.privateKeyPem,
                       authority.caCertificatePem() + other.caCertificatePem()));
}

TEST_F(SslContextMaking, EmptyTextsMakeNone) {
    EXPECT_FALSE(isMade("", "", ""));
}

TEST_F(SslContextMaking, EmptyCertificateMakesNone) {
    EXPECT_FALSE(isMade("", server.privateKeyPem, ""));
}

TEST_F(SslContextMaking, EmptyKeyMakesNone) {
    EXPECT_FALSE(isMade(server.certificatePem, "", ""));
}

TEST_F(SslContextMaking, GarbageMakesNone) {
    EXPECT_FALSE(isMade("garbage", server.privateKeyPem, ""));
    EXPECT_FALSE(isMade(server.certificatePem, "garbage", ""));
    EXPECT_FALSE(isMade(server.certificatePem, server.privateKeyPem, "garbage"));
}

TEST_F(SslContextMaking, CutOffCertificateMakesNone) {
    const std::string half = server.certificatePem.substr(0, server.certificatePem.size() / 2);
    EXPECT_FALSE(isMade(half, server.privateKeyPem, ""));
}

TEST_F(SslContextMaking, KeyOfAnotherCertificateMakesNone) {
    const IssuedCertificate other = authority.issue("other", Usage::kServer);
    EXPECT_FALSE(isMade(server.certificatePem, other.privateKeyPem, ""));
}

TEST_F(SslContextMaking, EncryptedKeyMakesNoneAndAsksNobody) {
    const std::string key = encryptedKey();
    ASSERT_NE(key.find("ENCRYPTED"), std::string::npos);
    EXPECT_FALSE(isMade(server.certificatePem, key, ""));
}

TEST_F(SslContextMaking, FailureLeavesNoErrorBehind) {
    isMade("garbage", "garbage", "garbage");
    EXPECT_EQ(ERR_peek_error(), 0UL);
}

}  // namespace
}  // namespace wifi_projection_protocol
