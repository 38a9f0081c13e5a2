// SPDX-License-Identifier: MIT
#pragma once

#include "simulation/Scenario.h"
#include "simulation/Schedule.h"

namespace simulation {

// What is left of a schedule that shows a defect when everything is taken away without which it
// shows one, too: nothing of the rest can be spared alone.
Schedule Shrink(const Scenario& scenario, Schedule schedule);

}  // namespace simulation
