// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>
#include <termios.h>

#include <memory>
#include <optional>
#include <string>

#include "pty/LastWill.h"

// Throws kUsage when `command`, which was given with `option`, is not empty and has no {}.
void MustNamePlace(const std::string& option, const std::string& command);

// A program of a person's choice that runs on a device node, with this process's standard streams
// and in its foreground.
class Program {
 public:
  // `command`: a command line of the shell, in which {} stands for the node. No signal is blocked
  // in it. SIGCHLD tells that Status may have come. Throws std::system_error.
  Program(std::string command, const std::string& node);

  // Puts the terminal of standard input right, in which a killed program leaves raw mode. That
  // happens also when this process is killed: at once, and again when the program has ended within
  // ten seconds, which is in the background then, and may not.
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  // As a shell tells it, 128 + N for signal N; nothing while it runs.
  std::optional<int> Status();

  void Signal(int number) const;

  // Blocks until it has ended, and gives the status.
  int WaitForStatus();

 private:
  void MakeWill(int life);
  int Spawn(const std::string& command, int life);
  std::optional<int> Take(int options);
  void Restore() const;

  pid_t process = -1;
  std::optional<int> status;
  termios before{};
  std::unique_ptr<LastWill> will;  // where there is a terminal, and it is this process's
};
