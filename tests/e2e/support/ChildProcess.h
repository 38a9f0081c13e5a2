// SPDX-License-Identifier: MIT
#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <string>
#include <vector>

// A process of a program, in a process group of its own. Standard input is empty, no signal is
// ignored or held back, whatever the test program was started with.
class ChildProcess {
 public:
  struct Start {
    std::vector<std::string> words;
    std::vector<std::string> environment;
    std::string output;          // the file that standard output is appended to
    std::string errors;          // the same for standard error
    int stream = -1;             // what stands for `output` instead
    bool leadsASession = false;  // as under most supervisors
  };
  explicit ChildProcess(Start start);

  // Kills what is left of the process group.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t Pid() const { return pid; }
  void Signal(int number) const;

  // "exit 0", "signal 6", or "still running" as it is now.
  std::string State();

  // The same at the end, or when the deadline passes.
  std::string WaitForExit();

  // A number of the kernel's about the process, by its name in /proc/PID/status. 0 when it is gone.
  size_t FromStatus(const std::string& field) const;

 protected:
  std::string Folder() const { return "/proc/" + std::to_string(pid); }

 private:
  pid_t pid = -1;
  std::string ended;
};

// The environment of the test program, of which a child gets its own copy.
std::vector<std::string> OwnEnvironment();
