// Linked into test programs that need TCP port 30516: where that is allowed, each runs in a network of its
// own.

#include <gtest/gtest.h>

#include "Tests/Support/OwnNetwork.h"

namespace {

class OwnNetworkEnvironment final : public testing::Environment {
public:
    void SetUp() override { wpp_test::enterOwnNetwork(); }
};

[[maybe_unused]] const testing::Environment* const environment =
    testing::AddGlobalTestEnvironment(new OwnNetworkEnvironment);

}  // namespace
