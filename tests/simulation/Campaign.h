// SPDX-License-Identifier: MIT
// Many runs: what is played, and what is told of it.
#pragma once

#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "simulation/Run.h"

namespace simulation {

class Campaign {
 public:
  explicit Campaign(std::vector<Scenario> played) : scenarios(std::move(played)) {}

  // Each plays every scenario; one that shows a defect is told once, and left out from there on.
  void PlaySeeds(uint64_t first, uint64_t count);
  void PlayNewSeeds(std::chrono::seconds duration);
  void PlaySchedule(const Schedule& schedule);
  // Every schedule of up to so many deviations from the plain course.
  void ExploreAll(uint64_t deviations);

  // How much there was. Not on the standard output: there a seed tells the same each time.
  void Summarize() const;
  bool HasDefects() const { return !failed.empty(); }

  bool endsAtFirst = false;  // with the first defect, which is not shrunk
  bool isTraced = false;     // on the standard output

 private:
  using Clock = std::chrono::steady_clock;

  bool IsOver() const { return endsAtFirst && HasDefects(); }
  void PlaySeed(uint64_t seed);
  Outcome PlayOne(const Scenario& scenario, const MakeChooser& makeChooser);
  bool Fails(const Scenario& scenario, const Outcome& outcome);

  const std::vector<Scenario> scenarios;
  const Clock::time_point begin = Clock::now();
  std::set<std::string> failed;
  uint64_t runs = 0;
  double virtualSeconds = 0;
};

}  // namespace simulation
