// SPDX-License-Identifier: MIT
// The lines that the service writes to one place, taken one after the other.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

class Lines {
 public:
  using Source = std::vector<std::string> (*)();

  explicit Lines(Source source) : read(source) {}

  // Waits for the next line: "nothing" when the deadline passes.
  std::string Next();

  // Whether any was asked for.
  bool AreWanted() const { return taken > 0; }

  // What has not been taken yet, in one text.
  std::string Rest() const;

 private:
  Source read;
  size_t taken = 0;
};

// The log, as "LEVEL MESSAGE", without the line of the start; standard output, without what it
// tells of the link; standard error. Blanks at the ends of lines are dropped.
std::vector<std::string> LogLines();
std::vector<std::string> OutputLines();
std::vector<std::string> ErrorLines();
