#include "Tests/Fuzz/Support/FuzzCheck.h"

#include <cstdio>
#include <cstdlib>

namespace wpp_test {

void reportBrokenProperty(const char* file, int line, const char* condition) {
    std::fprintf(stderr, "%s:%d: broken property: %s\n", file, line, condition);
    std::abort();
}

}  // namespace wpp_test
