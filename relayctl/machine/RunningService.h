// SPDX-License-Identifier: MIT
// The service's process, and what it sees: it may have an environment and a /tmp of its own.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "machine/MachineConfiguration.h"
#include "machine/ProcessTable.h"

struct RunningService {
  std::optional<Process> process;  // nothing: no service runs, or
  bool mayBeHidden = false;        // none is seen by this user, to whom the kernel shows its own
  std::vector<Process> others;     // more of them
  bool mayLookInto = false;        // the calling user sees its environment and its files
  std::map<std::string, std::string> environment;
  std::string folder;  // "/proc/12"

  // Where the calling process finds what the service finds at `path`: there as well, where that is
  // the same file or there is none, else below `folder`.
  std::string PathOf(const std::string& path) const;
};

// Of several, the one that listens on `relayPort`, else the oldest. Those of other network
// namespaces do not count, where that can be seen: nobody reaches them from here.
RunningService FindService(const ProcessTable& processes, std::optional<uint16_t> relayPort);

// What libvost tells the service; what it tells the calling process when no service runs, or none
// that may be looked into.
MachineConfiguration ReadConfigurationOf(const RunningService& service);

// The port that the service would listen on by its configuration.
uint16_t RelayPortByConfiguration();
