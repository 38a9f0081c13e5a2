// SPDX-License-Identifier: MIT
#include "simulation/Run.h"

#include <sys/single_threaded.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <sstream>

#include "simulation/Process.h"
#include "simulation/Races.h"
#include "simulation/oracle/Oracle.h"

// The service's own, under another name.
int ServiceMain();

namespace simulation {
namespace {

// What the process leaves when all its threads are gone.
std::string Remains(const Machine& machine) {
  if (!machine.kernel.OnlyMainIsLeft()) {
    return "defect: a thread outlives the service";
  }
  // The standard streams and the log stay open until the very end.
  for (const int number : machine.descriptors.Open()) {
    const mode_t mode = machine.descriptors.Find(number)->Status().st_mode;
    if (number > 2 && !S_ISREG(mode) && !S_ISFIFO(mode)) {
      return "defect: number " + std::to_string(number) + " is left open at the end";
    }
  }
  return {};
}

int serviceStatus = 0;  // the service's

// Registered before the service's own objects are made, so that it runs behind their end.
void OnExit() {
  const std::string remains = serviceStatus == 0 ? Remains(*Machine::Running()) : "";
  Kernel::Running()->End(remains.empty() ? "exit " + std::to_string(serviceStatus & 0xFF)
                                         : remains);
}

// Each with a zero behind it: ending, virtual time, schedule. Then the trace.
std::string TextOf(const Kernel& kernel, const std::string& ending, const std::string& schedule) {
  std::ostringstream text;
  text << ending << '\0' << static_cast<double>(kernel.Now()) / kSecond << '\0' << schedule << '\0';
  return text.str() + kernel.TraceText();
}

Outcome OutcomeOf(const Report& report) {
  std::istringstream text(report.text);
  Outcome outcome;
  std::string seconds;
  if (!std::getline(text, outcome.ending, '\0') || !std::getline(text, seconds, '\0') ||
      !std::getline(text, outcome.schedule, '\0')) {
    return {"defect: the run itself ended with status " + std::to_string(report.status)};
  }
  outcome.virtualSeconds = std::stod(seconds);
  outcome.trace = report.text.substr(static_cast<size_t>(text.tellg()));
  return outcome;
}

}  // namespace

void PlayHere(const Scenario& scenario, Chooser& chooser, bool traced, const OnEnd& onEnd) {
  Kernel kernel(chooser, traced, [&](const std::string& ending) {
    Races::Watch(nullptr);
    onEnd(kernel, Machine::Running()->oracle->Judge(ending));
  });
  Races races;
  Races::Watch(scenario.isCalm ? nullptr : &races);
  if (scenario.isCalm) {
    kernel.longestRun = kForever;
  }
  std::set_terminate([] { Kernel::Running()->End("signal 6"); });
  __libc_single_threaded = 0;  // reference counts are to be atomic, as beside real threads
  Machine machine(kernel, [](const Machine& ours) { return std::make_unique<Oracle>(ours); });
  kernel.Run("main", [&] {
    scenario.prepare(machine);
    (void)std::atexit(OnExit);
    serviceStatus = ServiceMain();
    std::exit(serviceStatus);
  });
}

Outcome Play(const Scenario& scenario, const MakeChooser& makeChooser, Wanted wanted) {
  return OutcomeOf(ReportOf([&](int report) {
    const std::unique_ptr<Chooser> decides = makeChooser();
    Recorder recorder(*decides);
    Chooser* const chooser = wanted == kSchedule ? &recorder : decides.get();
    PlayHere(scenario, *chooser, wanted == kTrace, [&](const Kernel& kernel, const auto& ending) {
      WriteWhole(report, TextOf(kernel, ending, TextOf(recorder.Recorded())));
      EndProcess();
    });
  }));
}

MakeChooser Seeded(const Scenario& scenario, uint64_t seed) {
  return [&scenario, seed]() -> std::unique_ptr<Chooser> {
    return scenario.isCalm ? std::make_unique<CalmWalk>(seed) : ChooserOf(seed);
  };
}

MakeChooser Replaying(const Schedule& schedule) {
  return [&schedule] { return std::make_unique<Replay>(schedule); };
}

bool IsDefect(const Scenario& scenario, const std::string& ending) {
  const auto& known = scenario.endings;
  return std::find(known.begin(), known.end(), ending) == known.end();
}

}  // namespace simulation
