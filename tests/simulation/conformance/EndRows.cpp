// SPDX-License-Identifier: MIT
// How a process ends; what it saw comes before.
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "simulation/conformance/Row.h"
#include "simulation/conformance/Script.h"

namespace conformance {
namespace {

void Exits(Bench& /*bench*/) { std::_Exit(-1); }

void Aborts(Bench& /*bench*/) { std::abort(); }

void IsTerminated(Bench& bench) {
  ChangeMask(SIG_BLOCK, SIGTERM);
  bench.Signals(SIGTERM);
  bench.Saw("held");
  ChangeMask(SIG_UNBLOCK, SIGTERM);
  bench.Saw("let go");
}

void HoldsWhatCannotBeHeld(Bench& bench) {
  sigset_t all;
  (void)sigfillset(&all);
  (void)pthread_sigmask(SIG_SETMASK, &all, nullptr);
  bench.Signals(SIGKILL);
  bench.Saw("goes on");
}

}  // namespace

std::vector<Row> EndRows() {
  return {{"`_Exit`", Exits},
          {"`abort`", Aborts},
          {"a signal that nobody handles", IsTerminated},
          {"SIGKILL, held", HoldsWhatCannotBeHeld}};
}

}  // namespace conformance
