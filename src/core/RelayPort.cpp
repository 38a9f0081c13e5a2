// SPDX-License-Identifier: MIT
#include "core/RelayPort.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace {

constexpr long kLastReservedPort = 1024;

}  // namespace

// A long has 32 bits on the device; a larger number counts as the largest one there, everywhere.
uint32_t RelayPortOf(const std::string& text) {
  const long port = std::strtol(text.c_str(), nullptr, 10);
  if (port <= kLastReservedPort) {
    return kDefaultRelayPort;
  }
  return static_cast<uint32_t>(std::min<long>(port, std::numeric_limits<int32_t>::max()));
}
