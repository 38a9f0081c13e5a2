// SPDX-License-Identifier: MIT
#include "Linux/CancellationShield.h"

#include <pthread.h>

CCancellationShield::CCancellationShield() {
  (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &earlierState);
}

CCancellationShield::~CCancellationShield() { (void)pthread_setcancelstate(earlierState, nullptr); }
