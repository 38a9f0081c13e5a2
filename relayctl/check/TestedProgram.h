// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

class Loop;

// One start of the program under test, in a process group of its own. Its standard input is empty,
// its standard output is dropped, and of its standard error the last line is kept.
class TestedProgram {
 public:
  // The loop outlives it, and has to run meanwhile, so that the program never waits for its
  // standard error to be read. `words`: in each, {port} stands for the port; the environment has it
  // as SERIAL_RELAY_PORT. `isAlone`: in a network of its own, where nobody listens, and where local
  // ports are given out from `port` and the one above only. Blocks until the program runs. Throws
  // kSystem when it cannot be started, or has no network of its own.
  TestedProgram(Loop& ownLoop, const std::vector<std::string>& words, uint16_t port, bool isAlone);

  // Kills what is left of the group.
  ~TestedProgram();
  TestedProgram(const TestedProgram&) = delete;
  TestedProgram& operator=(const TestedProgram&) = delete;

  void AskToEnd() const;

  // As a shell tells it, 128 + N for signal N; nothing while it runs.
  std::optional<int> Status();

  std::string LastWords();
  pid_t Pid() const { return process; }

 private:
  void Hear();

  Loop& loop;
  pid_t process = -1;
  int errors = -1;    // where its standard error comes out
  std::string heard;  // the end of it
  std::optional<int> status;
};
