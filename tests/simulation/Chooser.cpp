// SPDX-License-Identifier: MIT
#include "simulation/Chooser.h"

#include <algorithm>
#include <array>
#include <functional>

#include "simulation/Kernel.h"

namespace simulation {

int64_t Chooser::SomeTime() {
  constexpr std::array<int64_t, 4> kMilliseconds = {20, 400, 2500, 7000};
  return kMilliseconds[Draw(kMilliseconds.size())] * 1'000'000;
}

int64_t RandomWalk::Stall(const Thread& /*running*/) { return OneIn(1000) ? SomeTime() : 0; }

Thread* RandomWalk::Next(const std::vector<Thread*>& ready) {
  return ready[ready.size() == 1 ? 0 : Draw(ready.size())];
}

// The bias of the remainder is below 2^-50 for all that is drawn here.
uint64_t RandomWalk::Draw(uint64_t count) { return generator() % count; }

Priorities::Priorities(uint64_t seed, int depth, uint64_t points) : generator(seed) {
  for (int i = 1; i < depth; ++i) {
    changes.push_back(generator() % points);
  }
  changes.push_back(UINT64_MAX);  // there is always one to come
  std::sort(changes.begin(), changes.end(), std::greater<>());
}

int64_t& Priorities::PriorityOf(const Thread& thread) {
  const auto number = static_cast<size_t>(thread.number);
  while (priorities.size() <= number) {
    priorities.push_back(static_cast<int64_t>(1 + Draw(1U << 30)));
  }
  return priorities[number];
}

void Priorities::Lower(const Thread& thread) { PriorityOf(thread) = --lowest; }

int64_t Priorities::Stall(const Thread& running) {
  if (++point < changes.back()) {
    return 0;
  }
  changes.pop_back();
  if (OneIn(2)) {
    return SomeTime();
  }
  Lower(running);
  return 0;
}

Thread* Priorities::Next(const std::vector<Thread*>& ready) {
  Thread* const next = *std::max_element(
      ready.begin(), ready.end(),
      [this](const Thread* a, const Thread* b) { return PriorityOf(*a) < PriorityOf(*b); });
  if (next->number != last) {
    alone = 0;
  } else if (ready.size() > 1) {  // another one may wait for a lock at every second point
    ++alone;
  }
  last = next->number;
  if (alone == kSpinning) {
    Lower(*next);
    alone = 0;
  }
  return next;
}

uint64_t Priorities::Draw(uint64_t count) { return generator() % count; }

std::unique_ptr<Chooser> ChooserOf(uint64_t seed) {
  const int depth = static_cast<int>(seed % 6);
  if (depth == 0) {
    return std::make_unique<RandomWalk>(seed);
  }
  constexpr std::array<uint64_t, 3> kPoints = {60, 400, 3000};
  return std::make_unique<Priorities>(seed, depth, kPoints[seed / 6 % kPoints.size()]);
}

}  // namespace simulation
