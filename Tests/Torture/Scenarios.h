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

/// The same of the receiver's parts.
std::vector<Scenario> receiverCallScenarios();

/// The same of the library's TLS transport.
std::vector<Scenario> libraryCallScenarios();

}  // namespace wpp_torture
