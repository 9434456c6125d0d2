#pragma once

/// Ends the process with the broken property's text, which is how a fuzz target reports a finding.
#define FUZZ_CHECK(condition)                                                 \
    do {                                                                      \
        if (!(condition)) {                                                   \
            ::wpp_test::reportBrokenProperty(__FILE__, __LINE__, #condition); \
        }                                                                     \
    } while (false)

namespace wpp_test {

[[noreturn]] void reportBrokenProperty(const char* file, int line, const char* condition);

}  // namespace wpp_test
