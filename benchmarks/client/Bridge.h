// SPDX-License-Identifier: MIT
#pragma once

#include <sched.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

// What a bridge used so far, summed over its processes.
struct Usage {
  double cpuMicroseconds = 0;
  uint64_t contextSwitches = 0;  // a blocked thread that was woken is one
  uint64_t peakMemoryKib = 0;    // resident
  uint64_t threads = 0;
};

// The processes of one bridge under measurement: killed with this object.
class Bridge {
 public:
  Bridge() = default;
  ~Bridge();
  Bridge(const Bridge&) = delete;
  Bridge& operator=(const Bridge&) = delete;

  // Starts one process, its standard output and error going to /dev/null and `errorPath`.
  void Start(const std::vector<std::string>& words, const std::string& errorPath);

  // Moves every thread there; new ones follow those that make them.
  void UseProcessors(const cpu_set_t& processors) const;

  Usage Used() const;
  double CpuMicroseconds() const;  // a single cheap call per process

 private:
  std::vector<pid_t> pids;
};
