#pragma once

#include <sys/resource.h>

namespace wpp_test {

/// Lets the process open no further descriptor for the length of a scope; open ones keep working, but with a
/// limit of 0 poll fails too.
class DescriptorLimit {
public:
    explicit DescriptorLimit(rlim_t limit) {
        getrlimit(RLIMIT_NOFILE, &former);
        rlimit lowered = former;
        lowered.rlim_cur = limit;
        setrlimit(RLIMIT_NOFILE, &lowered);
    }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &former); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

private:
    rlimit former{};
};

}  // namespace wpp_test
