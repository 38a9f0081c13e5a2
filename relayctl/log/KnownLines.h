// SPDX-License-Identifier: MIT
// Every line that the service is known to write, and what it means: the home of the sentences that
// docs/operations.md has.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "log/LogRecord.h"

struct KnownLine {
  std::string_view event;  // its name for scripts
  LogSeverity severity;
  std::string_view module;  // of a log line; empty: it comes from a stream of the console
  std::string_view file;    // the log line's; else kOutput or kErrors
  std::string_view forms;   // "sh: {R}|rm: {R}": either, and what varies in braces, by its name
  std::string_view means;
  std::string_view toDo;  // empty: nothing
};

constexpr std::string_view kOutput = "output";
constexpr std::string_view kErrors = "error";

// Of two that match a line the first counts.
std::span<const KnownLine> KnownLines();

// Whether `text` has one of the forms. What varies is never empty. Gives the path of the device
// that it names as {P}, empty where it names none.
std::optional<std::string_view> Match(std::string_view forms, std::string_view text);
