// SPDX-License-Identifier: MIT
#include "machine/IdleTime.h"

#include <sched.h>

#include <algorithm>
#include <cstdlib>

#include "machine/Files.h"
#include "machine/ProcessStat.h"

namespace {

// While it lives, the calling thread runs on this processor alone.
class OnProcessor {
 public:
  explicit OnProcessor(size_t processor) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(processor, &one);
    isThere = sched_getaffinity(0, sizeof before, &before) == 0 &&
              sched_setaffinity(0, sizeof one, &one) == 0;
  }

  OnProcessor(const OnProcessor&) = delete;
  OnProcessor& operator=(const OnProcessor&) = delete;

  ~OnProcessor() {
    if (isThere) {
      (void)sched_setaffinity(0, sizeof before, &before);
    }
  }

  bool IsThere() const { return isThere; }  // not where this process may not run

 private:
  cpu_set_t before{};
  bool isThere = false;
};

// By the scheduler's clock, in milliseconds; 0: not shown, as some kernels do, or not on this
// processor yet.
double LastRunOf(const std::string& folder) {
  return std::strtod(ValueIn(TextOf(folder + "/sched"), "se.exec_start").c_str(), nullptr);
}

size_t ProcessorOf(const std::string& folder) { return ProcessStat(folder).Field(39); }

}  // namespace

// Each processor has a scheduler's clock of its own, which stands still while the machine's host
// has taken the processor away: they differ by seconds. Only what ran on one can be compared.
double IdleSecondsOf(const std::string& folder) {
  const size_t processor = ProcessorOf(folder);
  const OnProcessor here(processor);
  if (!here.IsThere()) {
    return 0;
  }
  const double theirs = LastRunOf(folder);
  const double ours = LastRunOf("/proc/thread-self");
  return theirs == 0 || ProcessorOf(folder) != processor ? 0
                                                         : std::max(0.0, (ours - theirs) / 1000);
}
