// SPDX-License-Identifier: MIT
// usage: Simulation [--scenario NAME] [--seed N [--runs N] [--trace]] [--seconds N] [--first]
// Without a seed: new ones for a minute, or so many seconds. With one: that one, or so many from
// it. With --first it ends at the first defect. Status 0: no run showed a defect. 1: one did, and
// each is told.
#include <execinfo.h>
#include <getopt.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <random>
#include <set>
#include <string_view>

#include "simulation/Run.h"

using namespace simulation;

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
  std::string scenario;  // empty: all
  uint64_t seed = 0;     // 0: new ones
  uint64_t runs = 1;     // of each scenario, from `seed` on
  uint64_t seconds = 60;
  bool isTraced = false;
  bool endsAtFirst = false;
};

uint64_t NumberIn(std::string_view text) {
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) {
    std::cerr << "Simulation: no number: " << text << std::endl;
    std::exit(2);
  }
  return number;
}

Options OptionsOf(int argc, char** argv) {
  const option known[] = {{"scenario", required_argument, nullptr, 'n'},
                          {"runs", required_argument, nullptr, 'r'},
                          {"seconds", required_argument, nullptr, 't'},
                          {"seed", required_argument, nullptr, 's'},
                          {"first", no_argument, nullptr, 'f'},
                          {"trace", no_argument, nullptr, 'v'},
                          {}};
  Options options;
  for (int found = 0; (found = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
    switch (found) {
      case 'f':
        options.endsAtFirst = true;
        break;
      case 'n':
        options.scenario = optarg;
        break;
      case 'r':
        options.runs = NumberIn(optarg);
        break;
      case 's':
        options.seed = NumberIn(optarg);
        break;
      case 't':
        options.seconds = NumberIn(optarg);
        break;
      case 'v':
        options.isTraced = true;
        break;
      default:
        std::exit(2);
    }
  }
  return options;
}

class Campaign {
 public:
  explicit Campaign(Options wanted) : options(std::move(wanted)), scenarios(Scenarios()) {
    if (!options.scenario.empty()) {
      std::erase_if(scenarios,
                    [this](const Scenario& scenario) { return scenario.name != options.scenario; });
    }
  }

  bool HasScenarios() const { return !scenarios.empty(); }

  // Every scenario with a seed, then with the next. False when one showed a defect.
  bool Play() {
    const bool isNew = options.seed == 0;
    uint64_t seed = isNew ? std::random_device()() : options.seed;
    std::cout << "from seed " << seed << std::endl;
    const auto end = begin + std::chrono::seconds(options.seconds);
    for (uint64_t played = 0; isNew ? Clock::now() < end : played < options.runs; ++played) {
      for (const Scenario& scenario : scenarios) {
        PlayOne(scenario, seed);
        if (options.endsAtFirst && !failed.empty()) {
          return false;
        }
      }
      ++seed;
    }
    Summarize();
    return failed.empty();
  }

 private:
  // One that has failed is told once: its next seeds would tell the same.
  void PlayOne(const Scenario& scenario, uint64_t seed) {
    if (failed.contains(scenario.name)) {
      return;
    }
    const Outcome outcome = simulation::Play(scenario, seed, options.isTraced);
    std::cout << outcome.trace;
    ++runs;
    virtualSeconds += outcome.virtualSeconds;
    if (std::find(scenario.endings.begin(), scenario.endings.end(), outcome.ending) ==
        scenario.endings.end()) {
      failed.insert(scenario.name);
      std::cout << scenario.name << ", seed " << seed << ": " << outcome.ending
                << "\n  again: ./test simulation --scenario " << scenario.name << " --seed " << seed
                << " --trace" << std::endl;
    }
  }

  // Not on the standard output: there a seed tells the same each time.
  void Summarize() const {
    const std::chrono::duration<double> real = Clock::now() - begin;
    std::cerr << scenarios.size() << " scenarios, " << runs << " runs, " << failed.size()
              << " failed; " << virtualSeconds << " simulated seconds in " << real.count() << " s"
              << std::endl;
  }

  const Options options;
  const Clock::time_point begin = Clock::now();
  std::vector<Scenario> scenarios;
  std::set<std::string> failed;
  uint64_t runs = 0;
  double virtualSeconds = 0;
};

}  // namespace

int main(int argc, char** argv) {
  void* frame = nullptr;
  (void)backtrace(&frame, 1);  // loads the unwinder once for all runs
  Campaign campaign(OptionsOf(argc, argv));
  if (!campaign.HasScenarios()) {
    std::cerr << "Simulation: there is no such scenario" << std::endl;
    return 2;
  }
  return campaign.Play() ? 0 : 1;
}
