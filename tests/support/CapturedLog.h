// SPDX-License-Identifier: MIT
// The log of the code under test: linked into a test program, it takes libKXLogger's place.
#pragma once

#include <string>
#include <vector>

struct LogLine {
  std::string module;
  std::string file;
  std::string line;
  std::string tag;
  std::string message;
  int level;
};

// All lines so far, in the order in which they came. Any thread may ask.
std::vector<LogLine> CapturedLog();

void ForgetCapturedLog();

// The messages alone.
std::vector<std::string> CapturedMessages();
