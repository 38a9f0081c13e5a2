// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "machine/RunningService.h"

// What systemd tells of the unit that the service runs in, or would.
struct ServiceUnit {
  std::string name;    // "serial-port-handler.service"; empty: there is none, or no systemd
  std::string state;   // "active (running)", "failed (failed)"; empty: not told
  std::string result;  // of the last run: "success", "exit-code"
  int lastStatus = 0;  // its exit status, or the signal's number
  std::optional<uint64_t> restarts;  // by systemd itself
};

ServiceUnit LookAtUnit(const RunningService& service);
