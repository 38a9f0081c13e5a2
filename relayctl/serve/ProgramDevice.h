// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include "serve/ServedDevice.h"

// A program whose standard input and output are the line. It is started at each open and told to
// end (SIGHUP, as by a line that hangs up) at the close; what it writes to standard error is seen.
// When it ends by itself the line is silent, and takes what comes.
class ProgramDevice : public ServedDevice {
 public:
  // `command`: a command line of the shell.
  ProgramDevice(const Line& portLine, std::string commandLine);

  // Kills what is left of the program and those that it has started.
  ~ProgramDevice() override;
  ProgramDevice(const ProgramDevice&) = delete;
  ProgramDevice& operator=(const ProgramDevice&) = delete;

  void Open() override;
  void Close() override;
  size_t Take(std::string_view bytes) override;
  std::string Give(size_t most) override;

 private:
  void Start(int programEnd);
  void HangUp();
  void End();

  const Line line;
  const std::string command;
  int stream = -1;
  pid_t process = -1;  // and its group
};
