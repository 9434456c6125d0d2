#include "Tests/Torture/RoadControl.h"

#include <algorithm>
#include <sstream>

#include "Tests/Torture/AllocationControl.h"
#include "Tests/Torture/CallControl.h"
#include "Tests/Torture/ControlFile.h"

namespace wpp_torture {

namespace {

template <class Control>
void arm(Control& control, const Injection& injection, bool isListing) {
    control.failing = static_cast<std::uint32_t>(injection.failing);
    control.index = injection.index;
    control.stack = injection.site.stack;
    control.listing = isListing ? 1 : 0;
    control.armed = 1;
}

template <class Control>
std::vector<std::string> framesOf(const Control& control) {
    std::vector<std::string> frames;
    for (std::uint32_t i = 0; i < control.frameCount; ++i) {
        const Frame& frame = control.frames[i];
        std::ostringstream text;
        text << (frame.module[0] == '\0' ? "receiver" : frame.module) << "+0x" << std::hex << frame.offset;
        frames.push_back(text.str());
    }
    return frames;
}

class Allocations final : public RoadControl {
public:
    Allocations(const std::string& file, const Injection& injection, bool isListing) : control(file) {
        arm(*control, injection, isListing);
    }

    const std::string& path() const override { return control.path(); }
    void disarm() override { control->armed = 0; }
    std::uint64_t failures() const override { return control->failures; }
    std::uint64_t counted() const override { return control->allocations; }
    std::uint64_t beforeMain() const override { return control->beforeMain; }
    std::vector<std::string> firstFailure() const override { return framesOf(*control); }
    std::vector<Site> sites() const override {
        std::vector<Site> found;
        for (std::uint64_t i = 0; i < std::min<std::uint64_t>(counted(), kMostRecords); ++i) {
            found.push_back({Call::kCount, control->stacks[i]});
        }
        return found;
    }

private:
    ControlFile<AllocationControl> control;
};

class Calls final : public RoadControl {
public:
    Calls(const std::string& file, const Injection& injection, bool isListing) : control(file) {
        control->call = static_cast<std::uint32_t>(injection.site.call);
        control->effect = injection.effect;
        arm(*control, injection, isListing);
    }

    const std::string& path() const override { return control.path(); }
    void disarm() override { control->armed = 0; }
    std::uint64_t failures() const override { return control->injections; }
    std::uint64_t counted() const override { return control->calls; }
    std::uint64_t beforeMain() const override { return 0; }
    std::vector<std::string> firstFailure() const override { return framesOf(*control); }
    std::vector<Site> sites() const override {
        std::vector<Site> found;
        for (std::uint64_t i = 0; i < std::min<std::uint64_t>(counted(), kMostRecords); ++i) {
            const CallRecord& record = control->records[i];
            if (record.ready == 1) {
                found.push_back({static_cast<Call>(record.call.load()), record.stack});
            }
        }
        return found;
    }

private:
    ControlFile<CallControl> control;
};

}  // namespace

std::unique_ptr<RoadControl> allocationControl(const std::string& file, const Injection& injection,
                                               bool isListing) {
    return std::make_unique<Allocations>(file, injection, isListing);
}

std::unique_ptr<RoadControl> callControl(const std::string& file, const Injection& injection,
                                         bool isListing) {
    return std::make_unique<Calls>(file, injection, isListing);
}

}  // namespace wpp_torture
