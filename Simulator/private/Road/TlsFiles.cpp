#include "Simulator/private/Road/TlsFiles.h"

#include "Simulator/CertificateAuthority.h"

namespace simulator {

namespace {

void writePair(const PrivateDirectory& directory, const std::string& name, const IssuedCertificate& issued) {
    directory.write(name + ".pem", issued.certificatePem);
    directory.write(name + ".key", issued.privateKeyPem);
}

}  // namespace

void writeTlsFiles(const PrivateDirectory& directory) {
    const CertificateAuthority authority("Head unit authority");
    const CertificateAuthority foreign("Foreign authority");
    directory.write("ca.pem", authority.caCertificatePem());
    writePair(directory, "receiver", authority.issue("head-unit", Usage::kServer));
    writePair(directory, "phone", authority.issue("phone", Usage::kClient));
    writePair(directory, "foreign-phone", foreign.issue("phone", Usage::kClient));
}

}  // namespace simulator
