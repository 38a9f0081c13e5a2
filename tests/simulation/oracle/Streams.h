// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace simulation {

// What the service writes for people: the lines of README.md and docs/operations.md, and no others.

// The message of a line of the log; empty where it is none, or not one that is known.
std::string MessageOf(std::string_view line);

// Of standard output or standard error, but for those that name data.
bool IsKnownOnConsole(std::string_view line);

// As standard error shows received data, without the end of the line.
std::string DumpOf(std::string_view data);

// Puts together the lines of a stream.
class Lines {
 public:
  // Those that this text completes.
  std::vector<std::string> Add(std::string_view text);

 private:
  std::string rest;
};

}  // namespace simulation
