// SPDX-License-Identifier: MIT
// The seconds that people give and read.
#pragma once

#include <optional>

#include "relay/Client.h"

inline relay::Clock::duration FromSeconds(double seconds) {
  return std::chrono::duration_cast<relay::Clock::duration>(std::chrono::duration<double>(seconds));
}

inline double ToSeconds(std::chrono::duration<double> time) { return time.count(); }

// The end of something that lasts so long from now on; 0: none.
inline std::optional<relay::Clock::time_point> EndAfter(double seconds) {
  return seconds > 0 ? std::optional(relay::Clock::now() + FromSeconds(seconds)) : std::nullopt;
}
