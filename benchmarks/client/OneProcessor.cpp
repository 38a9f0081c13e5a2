// SPDX-License-Identifier: MIT
#include "client/OneProcessor.h"

#include "client/Checked.h"

namespace {

void MoveTo(const cpu_set_t& processors) {
  Checked(sched_setaffinity(0, sizeof processors, &processors), "sched_setaffinity");
}

cpu_set_t SetOf(size_t processor) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(processor, &set);
  return set;
}

}  // namespace

OneProcessor::OneProcessor(const Bridge& bridge) : moved(bridge) {
  Checked(sched_getaffinity(0, sizeof all, &all), "sched_getaffinity");
  const auto here = static_cast<size_t>(Checked(sched_getcpu(), "sched_getcpu"));
  for (size_t processor = 0; processor < CPU_SETSIZE; ++processor) {
    if (processor != here && CPU_ISSET(processor, &all)) {
      spinners.emplace_back(&OneProcessor::KeepBusy, this, processor);
    }
  }
  MoveTo(SetOf(here));
  bridge.UseProcessors(SetOf(here));
}

OneProcessor::~OneProcessor() {
  ended = true;
  for (std::thread& spinner : spinners) {
    spinner.join();
  }
  try {
    MoveTo(all);
    moved.UseProcessors(all);
  } catch (const std::exception&) {
    // The bridge has ended; the next measurement says so.
  }
}

void OneProcessor::KeepBusy(size_t processor) {
  MoveTo(SetOf(processor));
  while (!ended) {
  }
}
