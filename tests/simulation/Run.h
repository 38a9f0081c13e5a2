// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "simulation/Chooser.h"
#include "simulation/Scenario.h"

namespace simulation {

struct Outcome {
  std::string ending;
  std::string trace = {};  // lines, when asked for
  double virtualSeconds = 0;
};

// One run in a process of its own: what the service leaves behind goes with it.
Outcome Play(const Scenario& scenario, uint64_t seed, bool traced);

}  // namespace simulation
