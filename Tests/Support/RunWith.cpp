#include "Tests/Support/RunWith.h"

namespace wpp_test {

std::string runWith() {
    return WPP_RUN_WITH;
}

}  // namespace wpp_test
