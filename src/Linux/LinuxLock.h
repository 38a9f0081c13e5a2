// SPDX-License-Identifier: MIT
#pragma once

#include <pthread.h>

#include "Linux/AbstractLock.h"

class CLinuxLock final : public CAbstractLock {
 public:
  CLinuxLock();
  ~CLinuxLock() override;
  CLinuxLock(const CLinuxLock&) = delete;
  CLinuxLock& operator=(const CLinuxLock&) = delete;

  int Lock() ACQUIRE() override;
  int Unlock() RELEASE() override;

 private:
  pthread_mutex_t mutex;
};
