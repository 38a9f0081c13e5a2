// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// A program of the system whose standard output is read. No signal is blocked in it.
class Tool {
 public:
  // kRead: as long as it prints. Its standard error is this process's own, and it has a process
  // group of its own: Ctrl-C is for this process alone, to which an end of the program by it would
  // be a failure.
  // kAsked: for one answer. Nobody sees its standard error, and Ctrl-C ends both.
  enum class Use { kRead, kAsked };

  // The first word is looked for on PATH. Throws kSystem when it cannot be started.
  Tool(std::vector<std::string> programAndArguments, Use use);

  // Ends it, where it has not ended by itself.
  ~Tool();
  Tool(const Tool&) = delete;
  Tool& operator=(const Tool&) = delete;

  int Descriptor() const { return output; }

  // Blocks until there is something. Empty at its end; throws kSystem when that was a failure.
  std::string Read();

 private:
  void MustHaveSucceeded();

  std::vector<std::string> words;
  pid_t process = -1;
  int output = -1;
};

struct ToolOutput {
  std::string text;     // of standard output
  std::string problem;  // why it is not all of it; empty: nothing
};

// Asks a tool, and waits some seconds for it at most.
ToolOutput RunTool(std::vector<std::string> programAndArguments);
