// The product and its bare counterparts, each in two processes. See Docs/performance.md.

#include "Benchmarks/RoundTrip/Acceptors.h"
#include "Benchmarks/RoundTrip/Carriers.h"
#include "Benchmarks/RoundTrip/Handshakers.h"
#include "Benchmarks/RoundTrip/SppReceivers.h"

int main(int argc, char** argv) {
    using namespace bench;
    return runCases(argc, argv,
                    {
                        commandCase(controlServiceCarrier()),
                        commandCase(minimalCarrier()),
                        commandCase(prescribedCarrier()),
                        throughputCase(streamCarrier()),
                        throughputCase(minimalCarrier()),
                        throughputCase(prescribedCarrier()),
                        throughputCase(prescribedCopyingCarrier()),
                        inFlightCase(streamCarrier()),
                        inFlightCase(prescribedCarrier()),
                        sppCase(ourSppReceiver()),
                        sppCase(minimalSppReceiver()),
                        sppCase(prescribedSppReceiver()),
                        sppCase(copyingSppReceiver()),
                        phonesCase(),
                        acceptCase(ourAcceptor()),
                        acceptCase(minimalAcceptor()),
                        acceptCase(prescribedAcceptor()),
                        handshakeCase(ourHandshaker()),
                        handshakeCase(openSslHandshaker()),
                    });
}
