// SPDX-License-Identifier: MIT
// What each of the two programs brings along.
#pragma once

#include <string>

#include "simulation/conformance/Row.h"

namespace conformance {

// Once, before the first row. What stands in the way, or an empty text.
std::string PrepareKernel();

// What the row saw, and how its process ended unless it returned, each behind a semicolon.
std::string Play(const Row& row);

}  // namespace conformance
