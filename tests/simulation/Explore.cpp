// SPDX-License-Identifier: MIT
#include "simulation/Explore.h"

#include <sstream>

#include "simulation/Kernel.h"
#include "simulation/Process.h"
#include "simulation/Run.h"

namespace simulation {
namespace {

// Goes every way from where it is, one after the other.
class Explorer : public PlainCourse {
 public:
  Explorer(uint64_t deviations, int reportTo) : most(deviations), report(reportTo) {}

  Thread* Next(const std::vector<Thread*>& ready) override {
    Thread* const plain = PlainNext(ready);
    if (ready.size() == 1) {
      return Goes(plain, ready);
    }
    const Deviation::Place place = Come(Deviation::kRuns);
    for (Thread* const other : ready) {
      if (other != plain && GoesAlso({place, other->number})) {
        return Goes(other, ready);
      }
    }
    return Goes(plain, ready);
  }

  // Of each run: nothing, or its ending and its schedule.
  void Tell(const std::string& defect) const {
    std::string line = defect.empty() ? "" : defect + '\t' + TextOf(schedule);
    WriteWhole(report, line.append(1, '\0'));
  }

 private:
  bool GoesAlso(const Deviation& deviation) {
    if (schedule.size() == most || !Kernel::Running()->HasSettled()) {
      return false;
    }
    schedule.push_back(deviation);
    int status = 0;
    if (GoesOnTwice(status)) {
      return true;
    }
    if (status != 0) {
      Tell("defect: the run itself ended with status " + std::to_string(status));
    }
    schedule.pop_back();
    return false;
  }

  const uint64_t most;
  const int report;
  Schedule schedule;
};

}  // namespace

Explored Explore(const Scenario& scenario, uint64_t deviations) {
  const Report report = ReportOf([&](int descriptor) {
    Explorer explorer(deviations, descriptor);
    PlayHere(scenario, explorer, false, [&](const Kernel& /*kernel*/, const auto& ending) {
      explorer.Tell(IsDefect(scenario, ending) ? ending : "");
      EndProcess();
    });
  });
  Explored explored;
  std::istringstream lines(report.text);
  for (std::string line; std::getline(lines, line, '\0'); ++explored.runs) {
    if (!line.empty() && explored.defects++ == 0) {
      explored.firstDefect = line.substr(0, line.rfind('\t'));
      explored.schedule = line.substr(line.rfind('\t') + 1);
    }
  }
  return explored;
}

}  // namespace simulation
