// SPDX-License-Identifier: MIT
// One look at what the kernel shows of the service, of which ServiceActivity takes many.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "machine/ProcessTable.h"
#include "machine/TerminalDevice.h"

// A serial line that the service has open.
struct OpenLine {
  dev_t number = 0;
  std::string path;
};

struct ThreadLook {
  uint64_t processorMillis = 0;
  uint64_t waits = 0;
  long call = -1;  // of the system call that it waits in
  std::string waitChannel;
  std::string target;  // of the descriptor that is the call's first argument
  std::string descriptor;

  bool WritesToTerminal() const;
  bool ReadsFromTerminal() const;
  bool WaitsForReader() const;  // of the service's standard streams
  bool Sends() const;
};

struct ActivityLook {
  std::vector<TcpSocket> sockets;
  std::map<pid_t, ThreadLook> threads;
  std::map<std::string, LineProgress> progress;  // of the terminals that are being written to
  std::vector<OpenLine> lines;
  bool filesAreShown = false;  // and so the lines
};

// `folder`: "/proc/12", the service's.
ActivityLook LookAtActivity(const ProcessTable& processes, const std::string& folder,
                            LineAccess lines);
