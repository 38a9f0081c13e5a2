// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

// The file that the service's log lines go to.
class LogFile {
 public:
  // All complete lines so far without time and source line: "LEVEL MODULE FILE TAG MESSAGE". A
  // line that does not have the log's format is given whole, behind "malformed: ".
  static std::vector<std::string> Lines();

  // How many lines are exactly `line`.
  static size_t Count(const std::string& line);

  // Waits until at least `count` lines are exactly `line`. False when the deadline passes.
  static bool Shows(const std::string& line, size_t count = 1);

  // All lines, for messages.
  static std::string Text();
};
