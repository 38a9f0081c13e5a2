// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "machine/RunningService.h"

// What a stream or the log of the service leads to.
struct StreamTarget {
  std::string name;       // "stdout", "stderr"
  std::string where;      // a path, "pipe", "socket"; empty: not shown, or closed
  ProcessSearch readers;  // of a pipe
};

// The service's process as a whole.
struct ServiceProcess {
  double startedAt = 0;  // seconds since 1970
  uint64_t processorMillis = 0;
  uint64_t residentBytes = 0;
  uint64_t threads = 0;
  std::optional<uint64_t> descriptors;  // nothing: not shown to this user
  std::optional<uint64_t> descriptorLimit;
  std::string program;         // its file; empty: not shown
  bool isProgramGone = false;  // removed or replaced since it was started
  std::string version;         // of the package that the program is of; empty: not known
  std::vector<StreamTarget> streams;
};

// `service` runs.
ServiceProcess LookAtProcess(const ProcessTable& processes, const RunningService& service);
