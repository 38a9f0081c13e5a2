// SPDX-License-Identifier: MIT
#pragma once

#include <string>

struct Outcome {
  int status = -1;     // as the shell gives it
  std::string output;  // both streams
};

// Runs a command line of the shell to its end. The programs that stand beside the test come first
// on PATH.
Outcome RunShell(const std::string& command);

// A word for the shell.
std::string Quoted(const std::string& text);
