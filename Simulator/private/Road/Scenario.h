#pragma once

#include <string>
#include <vector>

#include "Simulator/private/Peers/Json.h"
#include "Simulator/private/Road/PeerEvent.h"

namespace simulator {

/// How the receiver gets its TLS material.
enum class TlsSource {
    kConfigured,  ///< with the start of the protocol
    kRequested,   ///< the receiver asks for it when the first phone connects
};

/// An order of a scenario's own stage and whom it goes to.
struct ScenarioOrder {
    std::string to;
    Json order;
};

/// One stage of a scenario: one of the road's own by its name, or orders to give and events to wait for.
struct ScenarioStage {
    std::string name;
    bool isBuiltIn = false;
    std::vector<ScenarioOrder> orders;
    std::vector<Expectation> expectations;
    int round = 1;           ///< on the way, when the road is taken more than once
    bool endsRound = false;  ///< likewise: the last one of its round but for the end of the receiver
};

/// The course of a road: how many phones, what the head unit tells them, and which stages in which order.
struct Scenario {
    static constexpr int kMostPhones = 254;
    static constexpr int kMostRounds = 10000;

    int phones = 1;
    int rounds = 1;  ///< how often the phones take the road, with one receiver
    TlsSource tls = TlsSource::kConfigured;
    Milliseconds limit{10000};             ///< for each wait
    Json protocol = Json::object();        ///< fields of the start of the protocol
    Json projectionPort = Json::object();  ///< fields of the projection's address
    Json wifi = Json::object();            ///< fields of the Wi-Fi settings
    std::vector<ScenarioStage> course;     ///< empty: the whole road

    /// Settings as an ordinary head unit has them, and the whole road.
    static Scenario ordinary();

    /// Reads a scenario file's text; what it leaves out is as in ordinary().
    /// @throws JsonError saying what cannot be understood.
    static Scenario parse(const std::string& text);
};

/// An order and whom it goes to, an expectation; `where` names the place for complaints. @throws JsonError
ScenarioOrder parseOrder(const Json& object, const std::string& where);
Expectation parseExpectation(const Json& object, const std::string& where);

/// @throws JsonError for anything but "configured" and "requested".
TlsSource tlsSourceOf(const std::string& text);

}  // namespace simulator
