#include "Benchmarks/RoundTrip/Support/Case.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>

#include "Benchmarks/RoundTrip/Support/Processor.h"
#include "Benchmarks/RoundTrip/Support/ScratchDirectory.h"

namespace bench {

namespace {

constexpr int kPassed = 0;
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

Run readRun(int argc, char** argv) {
    Run run;
    run.contender = argv[2];
    for (int i = 3; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--round") {
            run.round = std::atoi(argv[i + 1]);
        } else if (option == "--seconds") {
            run.seconds = std::atof(argv[i + 1]);
        } else {
            throw std::invalid_argument("unknown option " + option);
        }
    }
    return run;
}

/// Where a block lies within its page decides by chance how fast the system copies it: on some processors a copy
/// between addresses that differ by a few bytes modulo the page's size takes several times as long. The layout of a
/// heap is the same each time that a program runs, so each round shifts it.
void shiftHeap(int round) {
    constexpr std::size_t kPageSize = 4096;
    constexpr std::size_t kStep = 1040;  // visits every multiple of 16 within a page
    const std::size_t size = (static_cast<std::size_t>(round) * kStep) % kPageSize + sizeof(void*);
    static std::unique_ptr<char[]> kept;
    kept.reset(new char[size]);
}

int measure(const Case& chosen, const Run& run) {
    shiftHeap(run.round);
    const ScratchDirectory directory;
    stayOnOneProcessor();
    chosen.measure(run);
    return kPassed;
}

int list(const std::vector<Case>& cases) {
    for (const Case& entry : cases) {
        std::printf("%s %s\n", entry.benchmark.c_str(), entry.contender.c_str());
    }
    return kPassed;
}

}  // namespace

void printSample(const Run& run, const std::string& metric, const std::string& parameter,
                 const std::string& unit, const std::string& better, double value) {
    std::printf(
        R"({"metric":"%s","parameter":"%s","contender":"%s","unit":"%s","better":"%s","round":%d,"value":%.6g})"
        "\n",
        metric.c_str(), parameter.c_str(), run.contender.c_str(), unit.c_str(), better.c_str(), run.round,
        value);
}

int runCases(int argc, char** argv, const std::vector<Case>& cases) {
    if (argc == 2 && std::string(argv[1]) == "--list") {
        return list(cases);
    }
    const auto chosen = std::find_if(cases.begin(), cases.end(), [argc, argv](const Case& entry) {
        return argc >= 3 && entry.benchmark == argv[1] && entry.contender == argv[2];
    });
    if (chosen == cases.end()) {
        std::fprintf(stderr, "usage: %s --list | BENCHMARK CONTENDER [--round N] [--seconds S]\n", argv[0]);
        return kWrongUsage;
    }
    try {
        return measure(*chosen, readRun(argc, argv));
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s %s: %s\n", argv[1], argv[2], exception.what());
        return kFailed;
    }
}

}  // namespace bench
