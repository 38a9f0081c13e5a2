// SPDX-License-Identifier: MIT
#include "show/Progress.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <initializer_list>

namespace {

std::string OneDecimal(double number) {
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), "%.1f", number);
  return text.data();
}

std::string Rate(double bytesPerSecond) {
  if (bytesPerSecond < 1e3) {
    return OneDecimal(bytesPerSecond) + " B/s";
  }
  return bytesPerSecond < 1e6 ? OneDecimal(bytesPerSecond / 1e3) + " kB/s"
                              : OneDecimal(bytesPerSecond / 1e6) + " MB/s";
}

std::string ClockText(uint64_t seconds) {
  constexpr uint64_t kLongest = 359999;  // what nobody waits for
  seconds = seconds < kLongest ? seconds : kLongest;
  std::array<char, 64> text{};
  const auto hours = static_cast<unsigned>(seconds / 3600);
  const auto minutes = static_cast<unsigned>(seconds / 60 % 60);
  const auto rest = static_cast<unsigned>(seconds % 60);
  if (hours > 0) {
    (void)std::snprintf(text.data(), text.size(), "%u:%02u:%02u", hours, minutes, rest);
  } else {
    (void)std::snprintf(text.data(), text.size(), "%u:%02u", minutes, rest);
  }
  return text.data();
}

std::string Joined(std::initializer_list<std::string> parts) {
  std::string text;
  for (const std::string& part : parts) {
    text += (text.empty() || part.empty() ? "" : ", ") + part;
  }
  return text;
}

}  // namespace

std::string ProgressText(uint64_t done, uint64_t total, std::chrono::milliseconds elapsed,
                         size_t columns) {
  const double seconds = static_cast<double>(elapsed.count()) / 1000;
  const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
  const std::string count =
      std::to_string(done) + (total > 0 ? " of " + std::to_string(total) : "") + " bytes";
  const std::string percent = total > 0 ? std::to_string(done * 100 / total) + " %" : "";
  const std::string pace = rate > 0 ? Rate(rate) : "";
  std::string left;
  if (rate > 0 && total > done) {
    const double time = static_cast<double>(total - done) / rate;
    left = ClockText(static_cast<uint64_t>(std::round(time))) + " left";
  }
  for (const std::string& text :
       {Joined({count, percent, pace, left}), Joined({count, percent, left})}) {
    if (text.size() <= columns) {
      return text;
    }
  }
  return total > 0 ? Joined({percent, left}) : count;
}
