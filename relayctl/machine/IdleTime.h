// SPDX-License-Identifier: MIT
#pragma once

#include <string>

// Seconds since a thread last ran. 0: less than can be told, or not shown. `folder`:
// "/proc/12/task/13". The calling thread moves for a moment to the processor on which that one ran.
double IdleSecondsOf(const std::string& folder);
