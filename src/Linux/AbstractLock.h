// SPDX-License-Identifier: MIT
#pragma once

// One mutex. Results are 0, or the errno of the call that failed. Not recursive.
class CAbstractLock {
 public:
  virtual ~CAbstractLock() = default;

  virtual int Lock() = 0;
  virtual int Unlock() = 0;
};
