#include "Pattern/QMUncopyable.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace {

class Derived : private QMUncopyable {};

TEST(QMUncopyable, DerivedClassesCannotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<Derived>);
    EXPECT_FALSE(std::is_copy_assignable_v<Derived>);
    EXPECT_TRUE(std::is_default_constructible_v<Derived>);
}

}  // namespace
