// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "machine/RunningService.h"
#include "machine/ServiceUnit.h"

struct ServiceLogLine {
  double time = 0;           // seconds since 1970
  bool isError = false;      // or worse
  bool tellsOfLoss = false;  // the service let go of the device, as its line had failed
  std::string device;        // "/dev/ttyUSB0"; empty: it names none
  std::string message;
};

// The end of the log that the service writes.
struct ServiceLog {
  std::string from;                   // a file, or "the journal"; empty: not known where
  std::string problem;                // why nothing of it is known; empty: nothing
  std::vector<ServiceLogLine> lines;  // oldest first

  // The last error behind `since`, of a device if one is given; nullptr: none.
  const ServiceLogLine* LastError(double since, const std::string& device = "") const;

  // When the service last let go of the device behind `since`, as its line had failed.
  std::optional<double> LostAt(const std::string& device, double since) const;

  // The devices that it has let go of behind `since`.
  std::vector<std::string> Lost(double since) const;
};

ServiceLog ReadServiceLog(const RunningService& service, const ServiceUnit& unit);

// The lines of `text` that have the log's form; others are passed over.
std::vector<ServiceLogLine> LogLinesIn(const std::string& text);
