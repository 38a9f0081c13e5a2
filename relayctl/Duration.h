// SPDX-License-Identifier: MIT
// The seconds that people give and read.
#pragma once

#include "relay/Client.h"

inline relay::Clock::duration FromSeconds(double seconds) {
  return std::chrono::duration_cast<relay::Clock::duration>(std::chrono::duration<double>(seconds));
}

inline double ToSeconds(std::chrono::duration<double> time) { return time.count(); }
