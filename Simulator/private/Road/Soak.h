#pragma once

#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "Simulator/private/Road/Road.h"

namespace simulator {

struct SoakOptions {
    Milliseconds time{30 * 60 * 1000};
    Milliseconds reportEvery{60 * 1000};
    std::uint32_t seed = 1;  ///< of the order in which things happen
};

/// Everything at once in one receiver, for a long time: honest phones that come and go in every manner, killed
/// and come back, strangers over TCP and RFCOMM, starts and their ends, and stops of the protocol.
///
/// Every period it prints what was done and what the receiver costs, and in the end a verdict: nothing may be
/// lost, whatever the controller is told has to be due, and the receiver must not grow after the second
/// report.
class Soak {
public:
    /// Lines go to `output`. @throws std::exception when the road cannot be prepared.
    Soak(const RoadOptions& roadOptions, const SoakOptions& soakOptions, std::ostream& output);

    /// The scenario of a soak: so many phones, the others as ordinarily.
    static Scenario scenario();

    /// @return the program's exit status: 0 only when nothing was lost and nothing has grown.
    int run();

private:
    /// An honest phone.
    struct Guest {
        const RoadPhone& phone;
        bool isHere = false;
        int openLosses = 0;  ///< that the controller may have been told of or not, since the last report
    };
    /// A phone that misbehaves, one visit after the other.
    struct Stranger {
        const RoadPhone& phone;
        bool isHere = false;
        Deadline limit{Milliseconds(0)};  ///< by which the receiver has to have turned it away
    };

    void begin();
    void cycle();
    void end();

    void arrive(Guest& guest);
    void leave(Guest& guest);
    void leaveInGoodOrder(Guest& guest);
    void beKilled(Guest& guest);
    void beDeleted(Guest& guest);
    void loseRfcommFirst(Guest& guest);
    void start(Guest& guest);
    void stopStart(Guest& guest);
    void ask(Guest& guest);
    void restartProtocol();

    void sendStrangers();
    void comeOverTcp(Stranger& stranger);
    void comeOverRfcomm(const RoadPhone& phone);
    void lookAfterStrangers();
    void awaitStrangers();

    void report();
    void forgetOpenLosses();
    int printVerdict();
    std::size_t choose(std::size_t count);

    const SoakOptions options;
    std::ostream& out;
    Road road;
    const double began;
    std::mt19937 random;
    std::vector<Guest> guests;
    std::vector<Stranger> strangers;
    std::vector<ProcessFigures> figures;  // of each report
    unsigned long cycles = 0;
    unsigned long served = 0;
    unsigned long turnedAway = 0;
    unsigned long killed = 0;
    unsigned long starts = 0;
    unsigned long restarts = 0;
    unsigned long errors = 0;
};

}  // namespace simulator
