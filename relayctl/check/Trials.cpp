// SPDX-License-Identifier: MIT
#include "check/Trials.h"

#include <algorithm>
#include <csignal>

#include "link/Loop.h"

Trials::Trials(Loop& ownLoop, size_t mostAtATime) : loop(ownLoop), most(mostAtATime) {
  loop.OnSignal(SIGCHLD, [this] { Work(); });
  loop.When(
      [this] {
        std::optional<relay::Clock::time_point> due;
        for (const Running& one : running) {
          const auto own = one.trial->Due();
          due = due && own ? std::min(*due, *own) : own;
        }
        return due;
      },
      [this] { Work(); });
}

void Trials::Fill() {
  while (running.size() < most && next < plansToDo.size()) {
    running.push_back({next, std::make_unique<Trial>(loop, plansToDo[next])});
    ++next;
  }
}

void Trials::Work() {
  for (const Running& one : running) {
    one.trial->Work();
    if (one.trial->IsOver()) {
      results[one.index] = one.trial->Result();
    }
  }
  std::erase_if(running, [](const Running& one) { return one.trial->IsOver(); });
  Fill();
}

std::vector<Seen> Trials::Run(const std::vector<TrialPlan>& plans) {
  plansToDo = plans;
  results.assign(plans.size(), Seen{});
  next = 0;
  Fill();
  signal = loop.Run([this] { return IsDone(); });
  running.clear();
  return results;
}
