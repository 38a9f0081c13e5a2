// SPDX-License-Identifier: MIT
// Holds a thread of another process where a call has done its work and has not returned: nothing
// but a debugger's stop is sure to hit that moment.
#pragma once

#include <sys/types.h>

#include <atomic>

namespace conformance {

// In memory that both processes share.
struct Hold {
  std::atomic<pid_t> thread = 0;  // wants to be held; 0: none
  std::atomic<long> call = 0;     // its number
  std::atomic<bool> isTraced = false;
  std::atomic<bool> isHeld = false;
  std::atomic<bool> isLetGo = false;
};

// The number of what the C library calls for `call`.
long NumberOf(const char* call);

// By the parent, once somebody wants to be held. Returns when the thread is let go.
void HoldThread(Hold& hold);

}  // namespace conformance
