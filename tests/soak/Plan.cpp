// SPDX-License-Identifier: MIT
#include "soak/Plan.h"

// Not the standard library's distribution: the same seed means the same plan everywhere.
size_t Plan::Between(size_t from, size_t to) { return from + generator() % (to - from + 1); }

size_t Plan::NextFault() {
  unsigned weights = 0;
  for (const FaultKind& kind : kFaultKinds) {
    weights += kind.weight;
  }
  size_t drawn = Between(0, weights - 1);
  size_t index = 0;
  for (; drawn >= kFaultKinds[index].weight; ++index) {
    drawn -= kFaultKinds[index].weight;
  }
  return index;
}
