// SPDX-License-Identifier: MIT
#include "serve/EchoDevice.h"

#include <algorithm>

namespace {

constexpr size_t kMostEcho = 65536;

}  // namespace

size_t EchoDevice::Take(std::string_view bytes) {
  const size_t count = std::min(bytes.size(), kMostEcho - echo.Size());
  echo.Add(bytes.substr(0, count));
  return count;
}

std::string EchoDevice::Give(size_t most) {
  std::string bytes(echo.View().substr(0, most));
  echo.Take(bytes.size());
  return bytes;
}

std::optional<relay::Clock::time_point> EchoDevice::Due() const {
  if (echo.IsEmpty()) {
    return std::nullopt;
  }
  return relay::Clock::now();
}
