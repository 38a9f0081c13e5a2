// SPDX-License-Identifier: MIT
#pragma once

// What a thread runs: the POSIX start-routine shape.
using ThreadRoutine = void* (*)(void*);

// One routine on a thread of its own, with a stop whose wait is bounded.
//
// Threads: Start, Stop and destruction belong to the one thread that owns the object, and never
// to the thread that it started.
class CAbstractThread {
 public:
  virtual ~CAbstractThread() = default;

  // 0 when the thread runs, -1 when none could be made. A second Start forgets the first thread.
  // What `argument` points to must live until the routine returns, which can be after Stop.
  virtual int Start(ThreadRoutine routine, void* argument) = 0;

  // Waits about two seconds for the routine to return, then cancels and detaches its thread.
  // It does not ask the routine to return: its user does, with a flag of its own. Always 0.
  virtual int Stop() = 0;
};
