// SPDX-License-Identifier: MIT
#pragma once

#include "Linux/ThreadSafety.h"

// One mutex. Results are 0, or the errno of the call that failed. Not recursive.
class CAPABILITY("lock") CAbstractLock {
 public:
  virtual ~CAbstractLock() = default;

  virtual int Lock() ACQUIRE() = 0;
  virtual int Unlock() RELEASE() = 0;
};
