#include "Tests/Torture/CallTrial.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <map>
#include <set>
#include <sstream>

#include "Tests/Support/Deadline.h"
#include "Tests/Support/ProcessState.h"
#include "Tests/Torture/AcceptedOutcomes.h"
#include "Tests/Torture/AllocationControl.h"
#include "Tests/Torture/AllocationHooks.h"
#include "Tests/Torture/CallHooks.h"

namespace wpp_torture {

namespace {

constexpr int kWarmUps = 2;
constexpr int kListings = 3;
constexpr std::uint64_t kSparesBehindTheLast = 1;  // threads make the number of calls vary
constexpr int kLeaksInARow = 4;
constexpr std::size_t kMostFindings = 40;
constexpr std::array<std::uint64_t, 6> kPeriods{2, 3, 4, 5, 7, 11};

struct CallInjection {
    Call call = Call::kCount;
    Effect effect = kShort;
    Failing failing = Failing::kNone;
    std::uint64_t index = 0;
};

char running[96] = "none";

const char* wordOf(Failing failing) {
    return failing == Failing::kOnce ? "once" : failing == Failing::kEvery ? "every" : "onward";
}

std::string describe(const CallInjection& injection) {
    std::ostringstream text;
    text << errorsOf(injection.call).name << ':' << nameOf(injection.effect) << ':'
         << wordOf(injection.failing) << ':' << injection.index;
    return text.str();
}

/// The numbers at which a call is to fail.
struct Places {
    std::uint64_t count = 0;                        // most calls seen in a run
    std::map<std::uint64_t, std::uint64_t> firsts;  // by stack, the first number seen
};

class CallTorturer {
public:
    CallTorturer(const Scenario& tortured, const CallTrialPlan& trialPlan)
        : scenario(tortured), plan(trialPlan) {
        // Threads take over each other's stacks, and with them blocks of the C library's, whosoever they are.
        useControl(&memory, Counted::kAll);
        useCallControl(&control);
    }
    ~CallTorturer() {
        useCallControl(nullptr);
        useControl(nullptr);
    }

    CallTotals torture() {
        list();
        if (totals.findings.empty()) {
            for (std::size_t call = 0; call < kCallCount; ++call) {
                torture(static_cast<Call>(call));
            }
            const RunOutcome after = run({});
            if (!after.finding.empty()) {
                totals.findings.push_back("fails after all injections: " + after.finding);
            }
        }
        return std::move(totals);
    }

private:
    /// Static, so that no run pays for their pages.
    static inline AllocationControl memory;
    static inline CallControl control;

    RunOutcome run(const CallInjection& injection) {
        control.armed = 0;
        control.failing = static_cast<std::uint32_t>(injection.failing);
        control.call = static_cast<std::uint32_t>(injection.call);
        control.effect = injection.effect;
        control.index = injection.index;
        control.listing = injection.failing == Failing::kNone ? 1 : 0;
        control.calls = 0;
        for (auto& count : control.counts) {
            count = 0;
        }
        control.injections = 0;
        const std::set<int> before = wpp_test::openDescriptors();
        RunOutcome outcome = runScenario(scenario, control.armed, memory.live);
        if (outcome.finding.empty() && wpp_test::openDescriptors() != before) {
            outcome.finding = "descriptors leaked";
        }
        if (outcome.finding.empty() && !wpp_test::waitUntil([] { return wpp_test::threadCount() == 1; })) {
            outcome.finding = "a thread was left behind";
        }
        return outcome;
    }

    void list() {
        for (int i = 0; i < kWarmUps + kListings; ++i) {
            RunOutcome outcome = runWhole();
            for (int again = 0; again < kListings && failed(outcome); ++again) {
                // A tortured run has short limits, which a busy machine may break.
                outcome = runWhole();
            }
            if (failed(outcome)) {
                totals.findings.push_back("fails without any injection: " + outcome.finding);
                return;
            }
            if (i >= kWarmUps) {
                usuallyLeft = std::max(usuallyLeft, outcome.leaked);
                takeListing();
            }
        }
    }

    /// Nothing fails, and the calls are recorded.
    RunOutcome runWhole() {
        for (std::uint64_t i = 0; i < std::min<std::uint64_t>(control.calls, kMostRecords); ++i) {
            control.records[i].ready = 0;
        }
        return run({});
    }

    bool failed(const RunOutcome& whole) const {
        return !whole.finding.empty() || (whole.answered && !scenario.logsErrors);
    }

    void takeListing() {
        std::array<std::uint64_t, kCallCount> counts{};
        for (std::uint64_t i = 0; i < std::min<std::uint64_t>(control.calls, kMostRecords); ++i) {
            const CallRecord& record = control.records[i];
            const std::uint32_t call = record.call;
            if (record.ready == 1) {
                places[call].firsts.try_emplace(record.stack, ++counts[call]);
                totals.tally.addSite(static_cast<Call>(call), record.stack);
            }
        }
        for (std::size_t i = 0; i < kCallCount; ++i) {
            places[i].count = std::max<std::uint64_t>(places[i].count, control.counts[i]);
        }
    }

    /// The first call of each stack, and as many others as are wanted.
    std::set<std::uint64_t> numbersOf(Call call) const {
        const Places& found = places[static_cast<std::size_t>(call)];
        const std::uint64_t end = found.count + kSparesBehindTheLast;
        const std::uint64_t wanted =
            plan.mostPlaces == 0 ? end : std::min<std::uint64_t>(end, plan.mostPlaces);
        std::set<std::uint64_t> numbers;
        for (const auto& first : found.firsts) {
            if (plan.mostPlaces == 0 || numbers.size() < wanted) {
                numbers.insert(first.second);
            }
        }
        for (std::uint64_t i = 0; i < wanted && numbers.size() < wanted; ++i) {
            numbers.insert(1 + i * end / wanted);
        }
        return numbers;
    }

    void torture(Call call) {
        if (places[static_cast<std::size_t>(call)].count == 0) {
            return;
        }
        const std::set<std::uint64_t> numbers = numbersOf(call);
        for (const Effect effect : errorsOf(call).effects) {
            for (const Failing failing : {Failing::kOnce, Failing::kFromThereOn}) {
                for (const std::uint64_t number : numbers) {
                    inject({call, effect, failing, number});
                }
            }
            for (std::size_t i = 0; i < kPeriods.size() && (plan.mostPlaces == 0 || i < plan.mostPlaces);
                 ++i) {
                inject({call, effect, Failing::kEvery, kPeriods[i]});
            }
        }
    }

    void inject(const CallInjection& injection) {
        if (totals.findings.size() >= kMostFindings || planned++ % plan.share != 0 ||
            (!plan.only.empty() && plan.only != describe(injection))) {
            return;
        }
        std::snprintf(running, sizeof(running), "%s", describe(injection).c_str());
        RunOutcome outcome = run(injection);
        if (control.injections == 0) {
            return;
        }
        if (outcome.finding.empty() && outcome.leaked > usuallyLeft) {
            outcome.finding = findLeak(injection);
        }
        if (outcome.finding.rfind("silent", 0) == 0 &&
            isAccepted(kSilentRetry, injection.call, injection.effect)) {
            outcome.finding.clear();
            outcome.special = kSilentRetry;
        }
        if (outcome.finding.empty() && !outcome.special.empty() &&
            !isAccepted(outcome.special, injection.call, injection.effect)) {
            outcome.finding = "not accepted: " + outcome.special;
        }
        const bool isFinding = !outcome.finding.empty();
        totals.tally.addInjection(injection.call, injection.effect, outcome.special, isFinding);
        if (isFinding) {
            totals.findings.push_back(describe(injection) + ": " + outcome.finding);
        }
    }

    /// Blocks that stay behind may be a cache that grew; those that stay behind every time are a leak.
    std::string findLeak(const CallInjection& injection) {
        std::int64_t leaked = 0;
        for (int i = 0; i < kLeaksInARow; ++i) {
            leaked = run(injection).leaked;
            if (leaked <= usuallyLeft) {
                return {};
            }
        }
        return std::to_string(leaked - usuallyLeft) + " blocks leaked";
    }

    const Scenario& scenario;
    const CallTrialPlan& plan;
    std::array<Places, kCallCount> places;
    std::uint64_t planned = 0;
    std::int64_t usuallyLeft =
        std::numeric_limits<std::int64_t>::min();  // blocks that helpers took and others gave back
    CallTotals totals;
};

}  // namespace

const char* runningInjection() {
    return running;
}

CallTotals tortureCalls(const Scenario& scenario, const CallTrialPlan& plan) {
    return CallTorturer(scenario, plan).torture();
}

}  // namespace wpp_torture
