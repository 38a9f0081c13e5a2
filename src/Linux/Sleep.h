// SPDX-License-Identifier: MIT
#pragma once

// The result of usleep: 0, or -1 with errno EINTR when a signal cut the sleep short.
int SleepMilliseconds(unsigned milliseconds);
