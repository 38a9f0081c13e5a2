// SPDX-License-Identifier: MIT
#include "serial/Pauses.h"

#include <unistd.h>

std::function<void(unsigned microseconds)> onPause;

extern "C" {

int __real_usleep(useconds_t microseconds);
int __wrap_usleep(useconds_t microseconds);

int __wrap_usleep(useconds_t microseconds) {
  if (onPause) {
    onPause(microseconds);
  }
  return __real_usleep(microseconds);
}

}  // extern "C"
