// SPDX-License-Identifier: MIT
#include "show/MessageView.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <utility>
#include <vector>

#include "Duration.h"
#include "relay/Text.h"

namespace {

using relay::Clock;

// A message without a pause is shown in pieces of this size.
constexpr size_t kMostGathered = 4096;

constexpr size_t kBytesInRow = kHexWidth / 3;

std::string TimeOfDay(std::chrono::system_clock::time_point when) {
  using std::chrono::microseconds;
  const std::time_t seconds = std::chrono::system_clock::to_time_t(when);
  const auto part = std::chrono::duration_cast<microseconds>(
      when - std::chrono::system_clock::from_time_t(seconds));
  std::tm parts{};
  (void)localtime_r(&seconds, &parts);
  char text[32];
  (void)std::snprintf(text, sizeof text, "%02d:%02d:%02d.%06d", parts.tm_hour, parts.tm_min,
                      parts.tm_sec, static_cast<int>(part.count()));
  return text;
}

}  // namespace

MessageGatherer::MessageGatherer(relay::Millis messageSilence,
                                 std::function<void(const Message&)> messageTaker)
    : silence(messageSilence), taker(std::move(messageTaker)) {}

void MessageGatherer::Add(const relay::Port& port, std::string_view bytes) {
  const auto now = Clock::now();
  Message& message = open[port];
  if (message.bytes.empty()) {
    message.port = port;
    message.began = now;
  }
  message.bytes += bytes;
  message.ended = now;
  if (silence.count() == 0 || message.bytes.size() >= kMostGathered) {
    taker(message);
    open.erase(port);
  }
}

std::optional<Clock::time_point> MessageGatherer::Due() const {
  std::optional<Clock::time_point> due;
  for (const auto& entry : open) {
    const auto end = entry.second.ended + silence;
    due = due ? std::min(*due, end) : end;
  }
  return due;
}

void MessageGatherer::Flush(bool all) {
  const auto now = Clock::now();
  std::vector<Message> over;
  for (auto entry = open.begin(); entry != open.end();) {
    if (all || entry->second.ended + silence <= now) {
      over.push_back(std::move(entry->second));
      entry = open.erase(entry);
    } else {
      ++entry;
    }
  }
  std::sort(over.begin(), over.end(),
            [](const Message& a, const Message& b) { return a.began < b.began; });
  for (const Message& message : over) {
    taker(message);
  }
}

TimeView::TimeView(TimeForm timeForm) : form(timeForm) {}

std::string TimeView::Text(Clock::time_point when) {
  char text[40] = "";
  switch (form) {
    case TimeForm::kAbsolute:
      return TimeOfDay(startOfDay + std::chrono::duration_cast<std::chrono::system_clock::duration>(
                                        when - start)) +
             " ";
    case TimeForm::kSinceStart:
      (void)std::snprintf(text, sizeof text, "%12.6f ", ToSeconds(when - start));
      return text;
    case TimeForm::kDelta:
      (void)std::snprintf(text, sizeof text, "%+12.6f ",
                          ToSeconds(when - std::exchange(last, when)));
      return text;
    case TimeForm::kNone:
      break;
  }
  return "";
}

double TimeView::UnixTime(Clock::time_point when) const {
  return ToSeconds(startOfDay.time_since_epoch()) + ToSeconds(when - start);
}

std::vector<std::string> Rows(std::string_view bytes, ByteForm form) {
  if (form == ByteForm::kText) {
    return {relay::Escape(bytes)};
  }
  std::vector<std::string> rows;
  for (size_t at = 0; at < bytes.size(); at += kBytesInRow) {
    const std::string_view part = bytes.substr(at, kBytesInRow);
    std::string row = relay::ToHex(part, " ");
    if (form == ByteForm::kBoth) {
      row.resize(kHexWidth + 1, ' ');
      row += relay::Printable(part);
    }
    rows.push_back(row);
  }
  return rows;
}
