#include "Simulator/private/Road/TlsFiles.h"

#include <gtest/gtest.h>

#include "Simulator/private/Peers/Json.h"
#include "Simulator/private/Peers/TlsSession.h"

namespace simulator {
namespace {

TEST(TlsFiles, WritesTheMaterialOfBothSidesAndOfAStranger) {
    const PrivateDirectory directory;
    writeTlsFiles(directory);
    for (const char* const name : {"receiver", "phone", "foreign-phone"}) {
        const std::string stem = directory.path() + "/" + name;
        EXPECT_NE(readFile(stem + ".pem").find("BEGIN CERTIFICATE"), std::string::npos);
        EXPECT_NE(readFile(stem + ".key").find("PRIVATE KEY"), std::string::npos);
        EXPECT_NO_THROW(TlsSession(
            {readFile(stem + ".pem"), readFile(stem + ".key"), readFile(directory.path() + "/ca.pem")}));
    }
}

}  // namespace
}  // namespace simulator
