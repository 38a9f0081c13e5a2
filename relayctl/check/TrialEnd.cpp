// SPDX-License-Identifier: MIT
// When a trial is over.
#include <algorithm>

#include "check/Trial.h"

namespace {

using relay::Clock;

constexpr relay::Millis kToEnd{500};

}  // namespace

bool Trial::HasComeBack() const {
  return seen.asked.size() > 1 && plan.goal && seen.asked.back().HasOpened(*plan.goal) &&
         std::all_of(partners.begin(), partners.end(),
                     [](const auto& entry) { return entry.second.WasAtEnd(); });
}

bool Trial::IsAtGoal() const {
  if (!plan.goal || plan.how.isMute || plan.how.refusal || plan.how.isStuckOpen) {
    return false;
  }
  if (plan.how.broken) {
    return HasComeBack();
  }
  return plan.isSteady && !seen.asked.empty() && seen.asked.back() == *plan.goal && link.IsClear();
}

// Whether all that it asks for is known beforehand.
bool Trial::IsCompared() const {
  const Disturbance& how = plan.how;
  return plan.goal && plan.isSteady && !how.broken && !how.refusal && !how.isStuckOpen &&
         !how.isMute && !how.isDeaf && !how.isOwnPort;
}

// Whether it is given time although nothing happens.
bool Trial::IsAwaited() const {
  const Disturbance& how = plan.how;
  return plan.runsOnce || how.isDeaf || (how.isMute && seen.leaves == 0) ||
         (how.broken && link.Disturbed() > 0);
}

// Whether that was all, or no more can come of it.
bool Trial::MayEnd() const {
  const Clock::duration silence = Clock::now() - lastEvent;
  const bool isBusy = !link.IsClear() || meter.IsBusy() || (isAnswered && !hasExtras);
  if (seen.status || !seen.badLength.empty()) {
    return true;
  }
  if (plan.how.isAlone) {
    return !selfLook.IsBusy();
  }
  if (isBusy || seen.asked.empty()) {
    return false;
  }
  if (IsAtGoal()) {
    return !plan.runsOnce && silence >= TrialPlan::kSettle;
  }
  if (IsCompared()) {
    return !seen.asked.back().IsBeginOf(*plan.goal) && silence >= TrialPlan::kSettle;
  }
  return !IsAwaited() && silence >= plan.quiet;
}

// One that only is slow is given time.
Clock::time_point Trial::Limit() const {
  return std::min(std::max(lastProgress, lastEvent) + plan.limit, began + 3 * plan.limit);
}

void Trial::EndIfOver() {
  seen.isOverdue = Clock::now() >= Limit();
  if (seen.isOverdue || MayEnd()) {
    Finish();
  }
}

void Trial::Finish() {
  seen.sent = link.Sent();
  seen.tries = link.Tries();
  seen.disturbed += link.Disturbed();
  seen.isForeign = link.IsForeign();
  seen.isStuck = link.IsUp() && !link.IsClear();
  seen.wait = meter.Wait();
  selfLook.LookAtLast();
  seen.alone = selfLook.Told();
  seen.lastWords = program->LastWords();
  for (const auto& [port, partner] : partners) {
    if (!partner.WasAtEnd()) {
      seen.rest = port + ": " + partner.Rest();
    }
  }
  phase = Phase::kEnding;
  link.Ignore();
  program->AskToEnd();
  killAt = Clock::now() + kToEnd;
}
