// SPDX-License-Identifier: MIT
#include "Linux/UsedDescriptor.h"

#include <unistd.h>

#include "Linux/CancellationShield.h"

bool CUsedDescriptor::Set(int number) {
  State none = kNone;
  return current.compare_exchange_strong(none, static_cast<State>(number) + 1);
}

void CUsedDescriptor::Close() {
  State state = current;
  while (state != kNone && (state & kClosed) == 0) {
    if (current.compare_exchange_weak(state, state | kClosed)) {
      if ((state & kUses) == 0) {
        GiveBack(state);
      }
      return;
    }
  }
}

bool CUsedDescriptor::IsOpen() const {
  const State state = current;
  return state != kNone && (state & kClosed) == 0;
}

int CUsedDescriptor::BeginUse() {
  State state = current;
  do {
    if (state == kNone || (state & kClosed) != 0) {
      return -1;
    }
  } while (!current.compare_exchange_weak(state, state + kOneUse));
  return NumberIn(state);
}

void CUsedDescriptor::EndUse() {
  const State state = current.fetch_sub(kOneUse) - kOneUse;
  if ((state & kClosed) != 0 && (state & kUses) == 0) {
    GiveBack(state);
  }
}

// Closed and unused it becomes once: by its close, or by the end of the last use.
void CUsedDescriptor::GiveBack(State state) {
  current = kNone;
  const CCancellationShield shield;
  (void)close(NumberIn(state));
}
