#include "Core/CaughtException.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using wifi_projection_protocol::caughtExceptionText;

TEST(CaughtException, AStandardExceptionTellsItsText) {
    try {
        throw std::runtime_error("no room");
    } catch (...) {
        EXPECT_STREQ(caughtExceptionText(), "no room");
    }
}

TEST(CaughtException, AnyOtherExceptionIsUnknown) {
    try {
        throw 7;
    } catch (...) {
        EXPECT_STREQ(caughtExceptionText(), "unknown");
    }
}

}  // namespace
