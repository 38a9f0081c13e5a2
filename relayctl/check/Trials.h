// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "check/Trial.h"

// Carries out trials, several at a time, in one poll loop.
class Trials {
 public:
  // The loop outlives it.
  Trials(Loop& ownLoop, size_t mostAtATime);

  // What was seen in each. A signal ends it before its time: then `Ended` tells, and the rest is
  // not to be used. Throws what a Trial throws.
  std::vector<Seen> Run(const std::vector<TrialPlan>& plans);

  int Ended() const { return signal; }

 private:
  struct Running {
    size_t index = 0;
    std::unique_ptr<Trial> trial;
  };

  void Work();
  void Fill();
  bool IsDone() const { return next == plansToDo.size() && running.empty(); }

  Loop& loop;
  const size_t most;
  std::vector<TrialPlan> plansToDo;
  std::vector<Seen> results;
  std::vector<Running> running;
  size_t next = 0;
  int signal = 0;
};
