// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "simulation/Scenario.h"
#include "simulation/Schedule.h"

namespace simulation {

struct Outcome {
  std::string ending;
  double virtualSeconds = 0;
  std::string schedule = {};  // in words, when asked for
  std::string trace = {};     // lines, when asked for
};

enum Wanted { kEnding, kSchedule, kTrace };

// Made in the run's own process.
using MakeChooser = std::function<std::unique_ptr<Chooser>()>;

// One run in a process of its own: what the service leaves behind goes with it.
Outcome Play(const Scenario& scenario, const MakeChooser& makeChooser, Wanted wanted = kEnding);
MakeChooser Seeded(const Scenario& scenario, uint64_t seed);
MakeChooser Replaying(const Schedule& schedule);

// Plays it in this process. `onEnd` is told the ending, and must not return.
using OnEnd = std::function<void(const Kernel&, const std::string& ending)>;
[[noreturn]] void PlayHere(const Scenario& scenario, Chooser& chooser, bool traced,
                           const OnEnd& onEnd);

bool IsDefect(const Scenario& scenario, const std::string& ending);

}  // namespace simulation
