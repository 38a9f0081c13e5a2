// SPDX-License-Identifier: MIT
#pragma once

// Puts off the cancellation of the calling thread for a scope. Three places need it:
// destructors that may block (a cancellation cannot leave a destructor; it would end the process),
// the opening and closing of a descriptor (cancelled on the way, the descriptor would be lost) and
// calls into a platform library.
class CCancellationShield {
 public:
  CCancellationShield();
  ~CCancellationShield();
  CCancellationShield(const CCancellationShield&) = delete;
  CCancellationShield& operator=(const CCancellationShield&) = delete;

 private:
  int earlierState = 0;
};
