// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace simulation {

// The places of the service in a stack, innermost first, a line each: "FUNCTION at FILE:LINE". What
// belongs to the simulation and to the libraries is left out.
std::string PlacesIn(const std::vector<void*>& stack);

}  // namespace simulation
