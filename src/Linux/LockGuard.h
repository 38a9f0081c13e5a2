// SPDX-License-Identifier: MIT
#pragma once

#include "Linux/AbstractLock.h"

// Holds a lock for a scope. Cancelling a thread unwinds its stack, so a guard lets go where a
// plain Lock and Unlock pair would hold for ever; an exception that nobody catches ends the
// process without unwinding, the lock still held.
class SCOPED_CAPABILITY CLockGuard {
 public:
  explicit CLockGuard(CAbstractLock& guarded) ACQUIRE(guarded) : lock(guarded) {
    (void)lock.Lock();
  }
  ~CLockGuard() RELEASE() { (void)lock.Unlock(); }
  CLockGuard(const CLockGuard&) = delete;
  CLockGuard& operator=(const CLockGuard&) = delete;

 private:
  CAbstractLock& lock;
};
