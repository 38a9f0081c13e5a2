// SPDX-License-Identifier: MIT
#include "simulation/Campaign.h"

#include <algorithm>
#include <iostream>
#include <random>

#include "simulation/Explore.h"
#include "simulation/Shrink.h"

namespace simulation {
namespace {

std::string Again(const Scenario& scenario, const std::string& course) {
  return "./test simulation --scenario " + scenario.name + " " + course + " --trace";
}

size_t Calls(const Scenario& scenario, const Schedule& schedule) {
  const std::string trace = Play(scenario, Replaying(schedule), kTrace).trace;
  return static_cast<size_t>(std::count(trace.begin(), trace.end(), '\n'));
}

void TellShrunk(const Scenario& scenario, const Schedule& schedule) {
  const Schedule shrunk = Shrink(scenario, schedule);
  const auto preemptions = std::count_if(shrunk.begin(), shrunk.end(), [](const Deviation& each) {
    return each.place.kind == Deviation::kRuns;
  });
  std::cout << "  shrunk: " << Again(scenario, "--schedule " + TextOf(shrunk)) << "\n  that is "
            << Play(scenario, Replaying(shrunk)).ending << ", with " << shrunk.size() << " of "
            << schedule.size() << " decisions, " << preemptions
            << " of them about who goes on, and " << Calls(scenario, shrunk) << " of "
            << Calls(scenario, schedule) << " events" << std::endl;
}

void TellExplored(const Scenario& scenario, const Explored& explored) {
  std::cout << scenario.name << ": all " << explored.runs << " schedules, " << explored.defects
            << " with a defect" << std::endl;
  if (explored.defects != 0) {
    std::cout << "  " << explored.firstDefect
              << "\n  again:  " << Again(scenario, "--schedule " + explored.schedule) << std::endl;
  }
}

}  // namespace

void Campaign::PlaySeeds(uint64_t first, uint64_t count) {
  std::cout << "from seed " << first << std::endl;
  for (uint64_t seed = first; seed < first + count && !IsOver(); ++seed) {
    PlaySeed(seed);
  }
}

void Campaign::PlayNewSeeds(std::chrono::seconds duration) {
  uint64_t seed = std::random_device()();
  std::cout << "from seed " << seed << std::endl;
  for (; Clock::now() < begin + duration && !IsOver(); ++seed) {
    PlaySeed(seed);
  }
}

void Campaign::PlaySchedule(const Schedule& schedule) {
  for (const Scenario& scenario : scenarios) {
    const Outcome outcome = PlayOne(scenario, Replaying(schedule));
    if (Fails(scenario, outcome)) {
      std::cout << scenario.name << ": " << outcome.ending << std::endl;
    }
  }
}

void Campaign::ExploreAll(uint64_t deviations) {
  for (const Scenario& scenario : scenarios) {
    if (!scenario.isShort) {
      continue;
    }
    const Explored explored = Explore(scenario, deviations);
    runs += explored.runs;
    TellExplored(scenario, explored);
    if (explored.defects != 0) {
      failed.insert(scenario.name);
    }
  }
}

void Campaign::PlaySeed(uint64_t seed) {
  for (const Scenario& scenario : scenarios) {
    if (failed.contains(scenario.name) || IsOver()) {
      continue;
    }
    const Outcome outcome = PlayOne(scenario, Seeded(scenario, seed));
    if (Fails(scenario, outcome)) {
      std::cout << scenario.name << ", seed " << seed << ": " << outcome.ending
                << "\n  again:  " << Again(scenario, "--seed " + std::to_string(seed)) << std::endl;
      if (!endsAtFirst && !scenario.isCalm) {
        const std::string schedule = Play(scenario, Seeded(scenario, seed), kSchedule).schedule;
        TellShrunk(scenario, ScheduleFrom(schedule).value());
      }
    }
  }
}

Outcome Campaign::PlayOne(const Scenario& scenario, const MakeChooser& makeChooser) {
  Outcome outcome = Play(scenario, makeChooser, isTraced ? kTrace : kEnding);
  std::cout << outcome.trace;
  ++runs;
  virtualSeconds += outcome.virtualSeconds;
  return outcome;
}

bool Campaign::Fails(const Scenario& scenario, const Outcome& outcome) {
  const bool isDefect = IsDefect(scenario, outcome.ending);
  if (isDefect) {
    failed.insert(scenario.name);
  }
  return isDefect;
}

void Campaign::Summarize() const {
  const std::chrono::duration<double> real = Clock::now() - begin;
  std::cerr << scenarios.size() << " scenarios, " << runs << " runs, " << failed.size()
            << " failed; " << virtualSeconds << " simulated seconds in " << real.count() << " s"
            << std::endl;
}

}  // namespace simulation
