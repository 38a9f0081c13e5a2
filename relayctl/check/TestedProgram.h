// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// One start of the program under test, in a process group of its own. Its standard input is empty,
// its standard output is dropped, and of its standard error the last line is kept.
class TestedProgram {
 public:
  // `words`: in each, {port} stands for the port; the environment has it as SERIAL_RELAY_PORT.
  // `isAlone`: in a network of its own, where nobody listens, and where local ports are given out
  // from `port` and the one above only. Blocks until the program runs. Throws kSystem when it
  // cannot be started, or has no network of its own.
  TestedProgram(const std::vector<std::string>& words, uint16_t port, bool isAlone);

  // Kills what is left of the group.
  ~TestedProgram();
  TestedProgram(const TestedProgram&) = delete;
  TestedProgram& operator=(const TestedProgram&) = delete;

  void AskToEnd() const;

  // As a shell tells it, 128 + N for signal N; nothing while it runs.
  std::optional<int> Status();

  std::string LastWords() const;
  pid_t Pid() const { return process; }

 private:
  pid_t process = -1;
  int errors = -1;
  std::optional<int> status;
};
