// SPDX-License-Identifier: MIT
// What the end-to-end tests of relayctl have at hand: the real service, and the real program.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "e2e/ServiceTest.h"
#include "relayctl/Shell.h"

// A command line of the shell that runs beside the test, in a process group of its own. Standard
// input is empty.
class Background {
 public:
  explicit Background(const std::string& command);
  ~Background();  // kills what is left of the group
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  pid_t Pid() const { return pid; }
  void Signal(int number) const;

  // "exit 0", "signal 9", or "still running" when the deadline passes.
  std::string WaitForExit();

  // What it has written to both streams.
  std::string Output() const;
  bool Prints(const std::string& text) const;

  // What the kernel has counted for the process: time of processor in milliseconds, and how often
  // it has waited.
  uint64_t ProcessorTime() const;
  uint64_t Waits() const;

 private:
  std::string file;
  std::string ended;
  pid_t pid = -1;
};

// The service's and relayctl's configuration is one, and `relayctl` is on PATH.
class RelayctlTest : public ServiceTest {
 protected:
  RelayctlTest();

  // Starts the service and waits until it listens for the `count`-th time in this test.
  void StartListening(size_t count = 1);

  static constexpr const char* kPort = "'#PhysicalPort0'";  // for the shell
};
