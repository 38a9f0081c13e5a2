// SPDX-License-Identifier: MIT
#include "log/JournalEntry.h"

#include <charconv>
#include <utility>

#include "relay/Error.h"

namespace {

// More than the journal takes of one line, and than anybody prints.
constexpr uint64_t kLargestField = uint64_t{16} << 20;
constexpr size_t kSizeBytes = 8;

constexpr int64_t kLastMicros = 253402300799999999;  // of the year 9999

[[noreturn]] void Refuse(const char* what) {
  throw relay::Error(relay::ErrorKind::kNonsense, std::string("not the journal's export: ") + what);
}

uint64_t LittleEndian(std::string_view bytes) {
  uint64_t number = 0;
  for (size_t i = bytes.size(); i-- > 0;) {
    number = number << 8 | static_cast<uint8_t>(bytes[i]);
  }
  return number;
}

std::string_view FieldOf(const JournalEntry& entry, std::string_view name) {
  const auto found = entry.find(name);
  return found != entry.end() ? found->second : std::string_view();
}

template <typename Number>
std::optional<Number> NumberOf(std::string_view text) {
  Number number{};
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isWhole = parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
  return isWhole ? std::optional(number) : std::nullopt;
}

// syslog(3) has eight levels.
std::optional<LogSeverity> SeverityOfPriority(std::string_view text) {
  const auto priority = NumberOf<unsigned>(text);
  if (!priority || *priority > 7) {
    return std::nullopt;
  }
  return *priority < 3    ? LogSeverity::kFatal
         : *priority == 3 ? LogSeverity::kError
         : *priority == 4 ? LogSeverity::kWarning
         : *priority < 7  ? LogSeverity::kProgress
                          : LogSeverity::kDebug;
}

}  // namespace

// "NAME=value\n", or "NAME\n", the size in eight bytes, the value and "\n". False: not whole yet.
bool JournalExport::TakeField(std::string_view line) {
  const size_t equals = line.find('=');
  if (equals != std::string_view::npos) {
    entry[std::string(line.substr(0, equals))] = line.substr(equals + 1);
    used += line.size() + 1;
    return true;
  }
  const std::string_view rest = std::string_view(text).substr(used + line.size() + 1);
  if (rest.size() < kSizeBytes) {
    return false;
  }
  const uint64_t size = LittleEndian(rest.substr(0, kSizeBytes));
  if (size > kLargestField) {
    Refuse("a field is too long");
  }
  if (rest.size() < kSizeBytes + size + 1) {
    return false;
  }
  if (rest[kSizeBytes + size] != '\n') {
    Refuse("a field does not end where it should");
  }
  entry[std::string(line)] = rest.substr(kSizeBytes, size);
  used += line.size() + 1 + kSizeBytes + size + 1;
  return true;
}

std::optional<JournalEntry> JournalExport::Next() {
  for (;;) {
    const size_t end = text.find('\n', used);
    if (end == std::string::npos) {
      if (text.size() - used > kLargestField) {
        Refuse("a line is too long");
      }
      break;
    }
    if (end > used) {
      if (!TakeField(std::string_view(text).substr(used, end - used))) {
        break;
      }
      continue;
    }
    ++used;
    if (!entry.empty()) {
      return std::exchange(entry, {});
    }
  }
  text.erase(0, std::exchange(used, 0));
  return std::nullopt;
}

LogRecord RecordOf(const JournalEntry& entry) {
  // What a process of the unit wrote to a stream. Everything else is said about the unit.
  const bool isStream = FieldOf(entry, "_TRANSPORT") == "stdout";
  LogRecord record;
  if (isStream) {
    record = RecordOf(FieldOf(entry, "MESSAGE"));
  } else {
    record.what = FieldOf(entry, "MESSAGE");
  }
  if (const auto micros = NumberOf<int64_t>(FieldOf(entry, "__REALTIME_TIMESTAMP"));
      !record.time && micros && *micros >= 0 && *micros <= kLastMicros) {
    record.time = LogTime(std::chrono::microseconds(*micros));
  }
  if (!record.severity) {
    record.severity = SeverityOfPriority(FieldOf(entry, "PRIORITY"));
  }
  if (record.source.empty()) {
    record.source = FieldOf(entry, "SYSLOG_IDENTIFIER");
  }
  return record;
}
