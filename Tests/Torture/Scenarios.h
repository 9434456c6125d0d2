#pragma once

#include <vector>

#include "Tests/Torture/Trial.h"

namespace wpp_torture {

/// Every scenario of the framework.
const std::vector<Scenario>& frameworkScenarios();

/// The part of them that deals with sockets and files.
std::vector<Scenario> inputOutputScenarios();

/// Scenarios of failing system calls: the framework's streams.
std::vector<Scenario> streamCallScenarios();

/// The same of the links, the receiver's parts and the library's transport.
std::vector<Scenario> receiverCallScenarios();

}  // namespace wpp_torture
