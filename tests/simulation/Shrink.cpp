// SPDX-License-Identifier: MIT
#include "simulation/Shrink.h"

#include <algorithm>

#include "simulation/Run.h"

namespace simulation {
namespace {

bool ShowsDefect(const Scenario& scenario, const Schedule& schedule) {
  return IsDefect(scenario, Play(scenario, Replaying(schedule)).ending);
}

// Takes away so many decisions at a time, from the end. True when some could be spared.
bool Spare(const Scenario& scenario, Schedule& schedule, size_t many) {
  bool isSmaller = false;
  for (size_t end = schedule.size(); end > 0; end -= std::min(end, many)) {
    const auto to = schedule.begin() + static_cast<std::ptrdiff_t>(end);
    const auto from = to - static_cast<std::ptrdiff_t>(std::min(end, many));
    Schedule smaller(schedule.begin(), from);
    smaller.insert(smaller.end(), to, schedule.end());
    if (ShowsDefect(scenario, smaller)) {
      schedule = std::move(smaller);
      isSmaller = true;
    }
  }
  return isSmaller;
}

}  // namespace

Schedule Shrink(const Scenario& scenario, Schedule schedule) {
  for (size_t many = schedule.size(); many > 0; many /= 2) {
    while (Spare(scenario, schedule, many) && many == 1) {
    }
  }
  return schedule;
}

}  // namespace simulation
