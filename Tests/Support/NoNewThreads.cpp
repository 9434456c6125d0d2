#include "Tests/Support/NoNewThreads.h"

#include <cstddef>
#include <limits>

namespace wpp_test {

namespace {
// More than any address space has, with room for what is added to it.
constexpr std::size_t kTooLarge = std::numeric_limits<std::size_t>::max() / 4 * 3;
}  // namespace

NoNewThreads::NoNewThreads() {
    pthread_getattr_default_np(&usual);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kTooLarge);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
}

NoNewThreads::~NoNewThreads() {
    pthread_setattr_default_np(&usual);
    pthread_attr_destroy(&usual);
}

}  // namespace wpp_test
