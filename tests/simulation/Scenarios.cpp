// SPDX-License-Identifier: MIT
#include "simulation/Chaos.h"
#include "simulation/Scenario.h"

namespace simulation {

std::vector<Scenario> Scenarios() {
  std::vector<Scenario> all = {ChaosScenario()};
  for (const auto& some :
       {PortScenarios(), LinkScenarios(), FloodScenarios(), StreamScenarios(), StopScenarios()}) {
    all.insert(all.end(), some.begin(), some.end());
  }
  return all;
}

}  // namespace simulation
