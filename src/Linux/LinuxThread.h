// SPDX-License-Identifier: MIT
#pragma once

#include <pthread.h>

#include "Linux/AbstractThread.h"

// A POSIX thread. It starts with all signals blocked, see SignalMask.h.
class CLinuxThread final : public CAbstractThread {
 public:
  CLinuxThread();
  ~CLinuxThread() override;  // stops, see Stop
  CLinuxThread(const CLinuxThread&) = delete;
  CLinuxThread& operator=(const CLinuxThread&) = delete;

  int Start(ThreadRoutine routine, void* argument) override;

  // Interrupted by a signal, it waits that much shorter. Logs its failures.
  int Stop() override;

  // Waits until no routine started by any CLinuxThread is running any more, those that a Stop gave
  // up on included: true, or false when `milliseconds` have passed first.
  static bool WaitUntilNoneRuns(unsigned milliseconds);

 private:
  bool TryJoin();
  void GiveUp();

  pthread_t handle = 0;  // 0: no thread. Only the owner's thread and its signal handlers touch it.
};
