// SPDX-License-Identifier: MIT
#pragma once

#include "simulation/Scenario.h"

namespace simulation {

Scenario ChaosScenario();

}  // namespace simulation
