// SPDX-License-Identifier: MIT
// Looks at everything between a port's name and its line, and says what is wrong and how to mend
// it. Nothing here opens a port that nobody has open, unless it is told to: that would move the
// port's modem lines, which resets some devices.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "doctor/Report.h"
#include "machine/MachineConfiguration.h"
#include "machine/ProcessTable.h"
#include "machine/RunningService.h"
#include "machine/ServiceActivity.h"
#include "machine/ServiceLog.h"
#include "machine/ServiceProcess.h"
#include "machine/ServiceUnit.h"
#include "machine/UdevSnapshot.h"

// The machine as it is at one moment.
struct Machine {
  RunningService service;
  ServiceProcess process;  // nothing when no service runs, nor is there activity then
  ServiceUnit unit;
  ServiceLog log;
  MachineConfiguration configuration;  // as the service has it
  UdevSnapshot udev{""};
  std::string udevProblem;  // why `udev` is empty
  ServiceActivity activity;
  ProcessTable processes;
  std::string sys = "/sys";
  std::vector<std::string> ruleFolders = {"/etc/udev/rules.d", "/run/udev/rules.d",
                                          "/usr/lib/udev/rules.d", "/lib/udev/rules.d"};

  // `relayPort`: where the service should listen that is meant, if there are several.
  static Machine Now(std::optional<uint16_t> relayPort, LineAccess lines);
};

// The node that a name leads to on this machine; empty: none.
std::string NodeOf(const Machine& machine, const std::string& name);

// The service: who listens, which peer is connected, and what it needs of the system. `relayPort`:
// where it should listen.
Report ExamineService(const Machine& machine, uint16_t relayPort);

// For whoever wants to use the link: adds to such a report who has it.
void NotePeers(Report& service);

// One port by its name. With LineAccess::kNone no more than whether it can work.
Report ExaminePort(const Machine& machine, const std::string& name, LineAccess lines);
