// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "simulation/Scenario.h"

namespace simulation {

struct Explored {
  uint64_t runs = 0;
  uint64_t defects = 0;
  std::string firstDefect;  // its ending
  std::string schedule;     // its own, in words
};

// Plays every schedule that differs from the plain course in at most so many decisions about who
// goes on, behind the service's start: a thread gives way though it could go on, or another one
// than the first has its turn where one waits. A process is split in two where there is a choice,
// so that what two schedules have in common is played once. Nobody stalls, and chance gives the
// middle.
Explored Explore(const Scenario& scenario, uint64_t deviations);

}  // namespace simulation
