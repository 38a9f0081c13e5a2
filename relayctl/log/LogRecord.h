// SPDX-License-Identifier: MIT
// One line of what the service tells, in its log or on its console, as far as it is understood.
#pragma once

#include <chrono>
#include <optional>
#include <string>

struct KnownLine;

enum class LogSeverity { kFatal, kError, kWarning, kProgress, kDebug };

using LogTime = std::chrono::sys_time<std::chrono::microseconds>;

// What the line does not tell is empty.
struct LogRecord {
  std::optional<LogTime> time;
  // What the line says itself counts before what is known of it, and that before the journal's.
  std::optional<LogSeverity> severity;
  std::string module;                // of a log line
  std::string source;                // "SerialPort.cpp:45", "standard error", who wrote it else
  std::string what;                  // the message; all of a line that is no log line
  std::string device;                // that it is about: "/dev/ttyUSB0"
  const KnownLine* known = nullptr;  // nullptr: nothing more is known about it
};

// A line without its end, as it stands in a log file or came from one of the service's streams. A
// line that is neither becomes a record that has nothing but `what`.
LogRecord RecordOf(std::string_view line);

// "2026-11-21T02:50:26.668817Z", of years from 0 to 9999.
std::string IsoText(LogTime time);

const char* WordOf(LogSeverity severity);  // "fatal", "error", "warning", "progress", "debug"
