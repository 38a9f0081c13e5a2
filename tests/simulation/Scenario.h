// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "simulation/Machine.h"

namespace simulation {

// What happens around the service in one run, and what has to come of it.
struct Scenario {
  std::string name;
  // Before the service starts: spawns the actors.
  std::function<void(Machine&)> prepare;
  std::vector<std::string> endings;  // one of which it has to come to
  bool isShort = true;  // so that every schedule of it can be played; its end needs no chance
  bool isCalm = false;  // nobody stalls, and no race is looked for: it goes on for long
};

std::vector<Scenario> PortScenarios();    // devices and their ports
std::vector<Scenario> LinkScenarios();    // relays that leave and come back
std::vector<Scenario> FloodScenarios();   // relays that do not read
std::vector<Scenario> StreamScenarios();  // standard streams that nobody reads
std::vector<Scenario> StopScenarios();    // signals against whatever is under way

// Before the service starts: nobody reads standard error, where the log goes, too; or it is read
// slowly.
void LeaveTheLogUnread(Machine& machine);
void ReadErrorsSlowly(Machine& machine);

// So many days of an ordinary site: seven ports, an unplug a day, a relay's restart a week, traffic
// in bursts. What the service holds is the same at the end of each week.
Scenario DaysOfASite(int days);

std::vector<Scenario> Scenarios();  // and chaos

}  // namespace simulation
