// The benchmarks of round-trip over other people's libraries.

#include "Benchmarks/RoundTrip/Foreign/AsioServers.h"
#include "Benchmarks/RoundTrip/Foreign/ForeignCarriers.h"

int main(int argc, char** argv) {
    using namespace bench;
    std::vector<Case> cases;
    for (const Carrier& carrier : {zeroMqCarrier(), nngCarrier(), sdBusCarrier(), grpcCarrier()}) {
        cases.push_back(commandCase(carrier));
        cases.push_back(throughputCase(carrier));
    }
    cases.push_back(acceptCase(asioAcceptor()));
    cases.push_back(handshakeCase(asioHandshaker()));
    return runCases(argc, argv, cases);
}
