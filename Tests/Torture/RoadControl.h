#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Tests/Torture/CallTable.h"
#include "Tests/Torture/Failing.h"

namespace wpp_torture {

/// An allocation's or a system call's place in the receiver.
struct Site {
    Call call = Call::kCount;  ///< kCount for an allocation
    std::uint64_t stack = 0;
};

/// Which allocation or system call of a road fails.
struct Injection {
    Failing failing = Failing::kNone;
    std::uint64_t index = 0;  ///< from 1 on; 0 when the site's stack chooses
    Site site;
    Effect effect = kShort;  ///< of a system call
};

/// What the road shares with the hooks in the receiver: of its allocations, or of its system calls.
class RoadControl {
public:
    virtual ~RoadControl() = default;

    /// The file to be mapped by the receiver.
    virtual const std::string& path() const = 0;
    virtual void disarm() = 0;
    virtual std::uint64_t failures() const = 0;
    virtual std::uint64_t counted() const = 0;
    virtual std::uint64_t beforeMain() const = 0;

    /// The first failure's stack, as module+offset, innermost first.
    virtual std::vector<std::string> firstFailure() const = 0;

    /// Where the receiver was seen, while listing.
    virtual std::vector<Site> sites() const = 0;
};

/// @return an armed control in a file of this name; without a call in its site the injection is into allocations.
std::unique_ptr<RoadControl> allocationControl(const std::string& file, const Injection& injection,
                                               bool isListing);
std::unique_ptr<RoadControl> callControl(const std::string& file, const Injection& injection, bool isListing);

}  // namespace wpp_torture
