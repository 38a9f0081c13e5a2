// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// A program whose standard output is read. Its standard error is this process's own, and no signal
// is blocked in it. It has a process group of its own: Ctrl-C is for this process alone, to which
// an end of the program by it would be a failure.
class Tool {
 public:
  // The first word is looked for on PATH. Throws kSystem when it cannot be started.
  explicit Tool(std::vector<std::string> programAndArguments);

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
