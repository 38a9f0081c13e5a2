// SPDX-License-Identifier: MIT
// Which of the configured ports the service has open. It tells nobody; what is told here follows
// from its descriptors, its threads and its log.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "doctor/Doctor.h"

enum class PortState {
  kOpen,
  kAway,       // open, and its device is gone: the service tries to open it again
  kMayBeAway,  // that, or not open: one of several
  kNotOpen,
  kUnknown,  // this user may not see it
};

struct OpenPort {
  std::string name;
  std::string node;  // that the name leads to now; empty: none
  PortState state = PortState::kUnknown;
  std::optional<double> openedAt;  // seconds since 1970
  std::optional<double> awaySince;
  std::optional<uint64_t> receivedBytes;   // since it was opened
  const ThreadActivity* writer = nullptr;  // a thread that is in a write to it
};

// In the order of the configuration.
std::vector<OpenPort> OpenPortsOf(const Machine& machine);

// The part of ExamineService about the ports that the service has open.
void ExamineOpenPorts(const Machine& machine, Report& report);

// Since when there has been a link, as its receive thread begins with it; nothing: there is none.
std::optional<double> LinkedSince(const Machine& machine);
