#pragma once

#include <vector>

#include "Tests/Torture/Trial.h"

namespace wpp_torture {

/// Every scenario of the framework.
const std::vector<Scenario>& frameworkScenarios();

/// The part of them that deals with sockets and files.
std::vector<Scenario> inputOutputScenarios();



}  // namespace wpp_torture
