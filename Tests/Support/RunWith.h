#pragma once

#include <string>

namespace wpp_test {

/// The program that runs the programs of this build, an emulator; empty when this machine does.
std::string runWith();

}  // namespace wpp_test
