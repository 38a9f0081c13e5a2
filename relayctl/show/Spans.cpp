// SPDX-License-Identifier: MIT
#include "show/Spans.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

std::string ClockText(double secondsSince1970) {
  const auto seconds = static_cast<time_t>(secondsSince1970);
  const time_t now = time(nullptr);
  tm day{};
  tm today{};
  (void)localtime_r(&seconds, &day);
  (void)localtime_r(&now, &today);
  const bool isToday = day.tm_yday == today.tm_yday && day.tm_year == today.tm_year;
  std::array<char, 64> text{};
  (void)std::strftime(text.data(), text.size(), isToday ? "%H:%M:%S" : "%Y-%m-%d %H:%M:%S", &day);
  return text.data();
}

std::string SpanText(double seconds) {
  const auto whole = static_cast<long>(std::max(0.0, seconds));
  const auto both = [](long large, const char* largeUnit, long small, const char* smallUnit) {
    return std::to_string(large) + " " + largeUnit +
           (small > 0 ? " " + std::to_string(small) + " " + smallUnit : "");
  };
  constexpr long kMinute = 60;
  constexpr long kHour = 60 * kMinute;
  constexpr long kDay = 24 * kHour;
  return whole < kMinute ? std::to_string(whole) + " s"
         : whole < kHour ? both(whole / kMinute, "min", whole % kMinute, "s")
         : whole < kDay  ? both(whole / kHour, "h", whole % kHour / kMinute, "min")
                         : both(whole / kDay, "d", whole % kDay / kHour, "h");
}

std::string AgoText(double seconds) {
  return seconds < 0 ? "to come in " + SpanText(-seconds) + " by this machine's clock"
                     : SpanText(seconds) + " ago";
}

std::string SizeText(uint64_t bytes) {
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), "%.1f MiB", static_cast<double>(bytes) / (1 << 20));
  return text.data();
}

std::string BytesText(uint64_t count) {
  return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}
