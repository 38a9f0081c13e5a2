// SPDX-License-Identifier: MIT
#include "log/LogRecord.h"

#include <array>
#include <charconv>
#include <cstdio>

#include "log/KnownLines.h"

namespace {

constexpr std::string_view kTimeForm = "0000-00-00T00:00:00.000000Z";

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

// A digit wherever the form has a zero, and else the same.
bool LooksLikeTime(std::string_view text) {
  bool same = text.size() == kTimeForm.size();
  for (size_t i = 0; same && i < text.size(); ++i) {
    same = kTimeForm[i] == '0' ? IsDigit(text[i]) : text[i] == kTimeForm[i];
  }
  return same;
}

std::optional<LogTime> TimeFrom(std::string_view text) {
  if (!LooksLikeTime(text)) {
    return std::nullopt;
  }
  const auto number = [&](size_t at, size_t size) {
    unsigned value = 0;
    (void)std::from_chars(text.data() + at, text.data() + at + size, value);
    return value;
  };
  const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(number(0, 4))),
                                         std::chrono::month(number(5, 2)),
                                         std::chrono::day(number(8, 2)));
  const unsigned hour = number(11, 2);
  const unsigned minute = number(14, 2);
  const unsigned second = number(17, 2);
  if (!date.ok() || hour > 23 || minute > 59 || second > 59) {
    return std::nullopt;
  }
  return std::chrono::sys_days(date) + std::chrono::hours(hour) + std::chrono::minutes(minute) +
         std::chrono::seconds(second) + std::chrono::microseconds(number(20, 6));
}

std::optional<LogSeverity> SeverityFrom(std::string_view text) {
  int level = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), level);
  if (text.empty() || parsed.ec != std::errc() || parsed.ptr != text.data() + text.size()) {
    return std::nullopt;
  }
  return level <= 0  ? LogSeverity::kFatal
         : level > 3 ? LogSeverity::kDebug
                     : static_cast<LogSeverity>(level);
}

// What stands in front of the next blank, taken off; nothing where there is none.
std::optional<std::string_view> TakeWord(std::string_view& line) {
  const size_t blank = line.find(' ');
  if (blank == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view word = line.substr(0, blank);
  line.remove_prefix(blank + 1);
  return word;
}

// "FILE:LINE" without the line, which is a number; empty where it is none of that form.
std::string_view FileOf(std::string_view source) {
  const size_t colon = source.rfind(':');
  const bool isNumbered = colon != std::string_view::npos && colon + 1 < source.size() &&
                          source.find_first_not_of("0123456789", colon + 1) == source.npos;
  return isNumbered ? source.substr(0, colon) : "";
}

// "TIME LEVEL MODULE FILE:LINE TAG MESSAGE"
std::optional<LogRecord> LogLineOf(std::string_view line) {
  LogRecord record;
  const auto time = TakeWord(line);
  const auto level = TakeWord(line);
  const auto module = TakeWord(line);
  const auto source = TakeWord(line);
  const auto tag = TakeWord(line);
  if (!tag || FileOf(*source).empty()) {
    return std::nullopt;
  }
  record.time = TimeFrom(*time);
  record.severity = SeverityFrom(*level);
  if (!record.time || !record.severity) {
    return std::nullopt;
  }
  record.module = *module;
  record.source = *source;
  record.what = line;
  return record;
}

void LookUp(LogRecord& record, std::string_view file) {
  for (const KnownLine& known : KnownLines()) {
    if (known.module != record.module || (!known.module.empty() && known.file != file) ||
        (record.severity && known.severity != record.severity)) {
      continue;
    }
    if (const auto device = Match(known.forms, record.what)) {
      record.known = &known;
      record.severity = known.severity;
      record.device = *device;
      return;
    }
  }
}

}  // namespace

LogRecord RecordOf(std::string_view line) {
  std::optional<LogRecord> record = LogLineOf(line);
  if (record) {
    LookUp(*record, FileOf(record->source));
    return *record;
  }
  record.emplace();
  record->what = line;
  LookUp(*record, "");
  if (record->known != nullptr) {
    record->source = "standard " + std::string(record->known->file);
  }
  return *record;
}

std::string IsoText(LogTime time) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  const auto days = std::chrono::floor<std::chrono::days>(seconds);
  const std::chrono::year_month_day date(days);
  const std::chrono::hh_mm_ss clock(seconds - days);
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%06dZ",
                      static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                      static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                      static_cast<int>(clock.minutes().count()),
                      static_cast<int>(clock.seconds().count()),
                      static_cast<int>((time - seconds).count()));
  return text.data();
}

const char* WordOf(LogSeverity severity) {
  constexpr std::array kWords = {"fatal", "error", "warning", "progress", "debug"};
  return kWords[static_cast<size_t>(severity)];
}
