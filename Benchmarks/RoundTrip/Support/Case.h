#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

/// One measurement of one contender: which round it belongs to, and about how long it may take. With no time at
/// all, each thing is done once.
struct Run {
    int round = 0;
    double seconds = 0;
    std::string contender;
};

struct Case {
    std::string benchmark;
    std::string contender;
    std::function<void(const Run&)> measure;
};

/// Prints one sample as a line of JSON, the form that scripts/bench reads. `better` is "lower" or "higher".
void printSample(const Run& run, const std::string& metric, const std::string& parameter,
                 const std::string& unit, const std::string& better, double value);

/// The main of a program of such cases.
///
///     PROGRAM --list
///     PROGRAM BENCHMARK CONTENDER [--round N] [--seconds S]
///
/// The first form prints "BENCHMARK CONTENDER" a line; the second measures one of them, all of the process and its
/// children on one processor unless the case says otherwise. Sockets are made in a fresh working directory.
int runCases(int argc, char** argv, const std::vector<Case>& cases);

}  // namespace bench
