// SPDX-License-Identifier: MIT
#pragma once

#include <string>

struct ToolOutput {
  std::string text;     // of standard output
  std::string problem;  // why it is not all of it; empty: nothing
};

// Runs a tool of the system, which is on PATH, and waits some seconds for it at most. `command`:
// one command of the shell.
ToolOutput RunTool(const std::string& command);
