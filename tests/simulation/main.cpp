// SPDX-License-Identifier: MIT
// usage: Simulation [--scenario NAME] [--trace] [--first] [COURSE]
// Plays every scenario, or the one: for a minute with new seeds, or as COURSE tells:
//   --seconds N          so long
//   --seed N [--runs N]  with that seed, or so many from it
//   --schedule TEXT      as an earlier run told it
//   --days N             so many of an ordinary site, in one run
//   --explore N          every schedule of up to N deviations from the plain course
// --first: ends at the first defect, and does not shrink it. Status 0: no run showed a defect. 1:
// one did, and each is told.
#include <execinfo.h>
#include <getopt.h>

#include <charconv>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include "simulation/Campaign.h"

using namespace simulation;

namespace {

struct Options {
  std::string scenario;  // empty: all
  uint64_t seed = 0;     // 0: new ones
  uint64_t runs = 1;     // of each scenario, from `seed` on
  uint64_t seconds = 60;
  std::optional<uint64_t> deviations;  // nothing: seeds are played
  std::optional<Schedule> schedule;
  uint64_t days = 0;
  bool isTraced = false;
  bool endsAtFirst = false;
};

[[noreturn]] void GiveUp(const std::string& problem) {
  std::cerr << "Simulation: " << problem << std::endl;
  std::exit(2);
}

uint64_t NumberIn(std::string_view text) {
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) {
    GiveUp("no number: " + std::string(text));
  }
  return number;
}

Schedule ScheduleIn(std::string_view text) {
  const std::optional<Schedule> schedule = ScheduleFrom(text);
  if (!schedule) {
    GiveUp("no schedule: " + std::string(text));
  }
  return *schedule;
}

void TakeOption(int name, const char* value, Options& options) {
  switch (name) {
    case 'd':
      options.deviations = NumberIn(value);
      break;
    case 'f':
      options.endsAtFirst = true;
      break;
    case 'l':
      options.schedule = ScheduleIn(value);
      break;
    case 'n':
      options.scenario = value;
      break;
    case 'r':
      options.runs = NumberIn(value);
      break;
    case 's':
      options.seed = NumberIn(value);
      break;
    case 't':
      options.seconds = NumberIn(value);
      break;
    case 'v':
      options.isTraced = true;
      break;
    case 'y':
      options.days = NumberIn(value);
      break;
    default:
      std::exit(2);
  }
}

Options OptionsOf(int argc, char** argv) {
  const option known[] = {
      {"scenario", required_argument, nullptr, 'n'}, {"runs", required_argument, nullptr, 'r'},
      {"seconds", required_argument, nullptr, 't'},  {"seed", required_argument, nullptr, 's'},
      {"schedule", required_argument, nullptr, 'l'}, {"days", required_argument, nullptr, 'y'},
      {"explore", required_argument, nullptr, 'd'},  {"first", no_argument, nullptr, 'f'},
      {"trace", no_argument, nullptr, 'v'},          {}};
  Options options;
  for (int found = 0; (found = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
    TakeOption(found, optarg, options);
  }
  if (optind != argc) {
    GiveUp("what is this: " + std::string(argv[optind]));
  }
  return options;
}

std::vector<Scenario> ScenariosFor(const Options& options) {
  if (options.days != 0) {
    return {DaysOfASite(static_cast<int>(options.days))};
  }
  std::vector<Scenario> scenarios = Scenarios();
  if (!options.scenario.empty()) {
    std::erase_if(scenarios,
                  [&options](const Scenario& each) { return each.name != options.scenario; });
  }
  if (scenarios.empty()) {
    GiveUp("there is no scenario " + options.scenario);
  }
  return scenarios;
}

void Play(Campaign& campaign, const Options& options) {
  if (options.schedule) {
    campaign.PlaySchedule(*options.schedule);
  } else if (options.deviations) {
    campaign.ExploreAll(*options.deviations);
  } else if (options.seed != 0) {
    campaign.PlaySeeds(options.seed, options.runs);
  } else {
    campaign.PlayNewSeeds(std::chrono::seconds(options.seconds));
  }
}

}  // namespace

int main(int argc, char** argv) try {
  void* frame = nullptr;
  (void)backtrace(&frame, 1);  // loads the unwinder once for all runs
  const Options options = OptionsOf(argc, argv);
  Campaign campaign(ScenariosFor(options));
  campaign.endsAtFirst = options.endsAtFirst;
  campaign.isTraced = options.isTraced;
  Play(campaign, options);
  campaign.Summarize();
  return campaign.HasDefects() ? 1 : 0;
} catch (const std::exception& problem) {
  GiveUp(problem.what());
}
