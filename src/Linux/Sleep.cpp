// SPDX-License-Identifier: MIT
#include "Linux/Sleep.h"

#include <unistd.h>

int SleepMilliseconds(unsigned milliseconds) { return usleep(milliseconds * 1000); }
