// SPDX-License-Identifier: MIT
#include <algorithm>

#include "simulation/Kernel.h"

namespace simulation {

// What is ignored and held stays: it may be handled by the time it is let go.
bool Kernel::IsDropped(const Thread& target, int signal) const {
  return ActionOf(signal).handler == SIG_IGN && (target.blocked & SetOf(signal)) == 0;
}

// What the process is sent, its first thread stands for.
void Kernel::SendToProcess(int signal) {
  Note("kills with " + std::to_string(signal));
  if (!IsDropped(*threads.front(), signal)) {
    processPending |= SetOf(signal);
  }
}

void Kernel::SendToThread(Thread& thread, int signal) {
  if (!IsDropped(thread, signal)) {
    thread.pending |= SetOf(signal);
  }
}

// To ignore a signal is to forget those that wait.
void Kernel::SetAction(int signal, const Action& action) {
  actions[static_cast<size_t>(signal)] = action;
  if (action.handler == SIG_IGN) {
    processPending &= ~SetOf(signal);
    for (const auto& thread : threads) {
      thread->pending &= ~SetOf(signal);
    }
  }
}

bool Kernel::HasDeliverable(const Thread& thread) const {
  return thread.isService && ((thread.pending | processPending) & ~thread.blocked) != 0;
}

// Takes the lowest one that is let in, the thread's own before the process's; 0: none is.
int Kernel::TakeSignal() {
  for (SignalSet* const from : {&current->pending, &processPending}) {
    if (const SignalSet let = *from & ~current->blocked) {
      const int signal = __builtin_ctzll(let) + 1;
      *from &= ~SetOf(signal);
      return signal;
    }
  }
  return 0;
}

// One that comes together with another one interrupts its handler before it has begun.
Kernel::Handled Kernel::DeliverSignals() {
  Handled handled = Handled::kNothing;
  while (const int signal = current->isService ? TakeSignal() : 0) {
    const Action action = ActionOf(signal);
    if (action.handler == SIG_IGN) {
      continue;
    }
    if (action.handler == SIG_DFL) {
      End("signal " + std::to_string(signal));
    }
    const SignalSet before = current->blocked;
    current->blocked |= action.mask | SetOf(signal);
    handled = std::max({handled, DeliverSignals(),
                        action.restarts ? Handled::kRestarting : Handled::kInterrupting});
    Note("signal " + std::to_string(signal));
    hasHandled = true;
    ++current->handlers;
    action.handler(signal);
    --current->handlers;
    current->blocked = before;
  }
  return handled;
}

}  // namespace simulation
