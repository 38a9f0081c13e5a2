// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "soak/Plan.h"
#include "soak/World.h"

// What was counted, and the verdicts.
class Report {
 public:
  std::array<uint64_t, kFaultKinds.size()> faults{};
  uint64_t Faults(Fault fault) const { return faults[static_cast<size_t>(fault)]; }

  uint64_t relayWaits = 0;  // how often the link took no more
  Holdings atStart;
  Holdings atEnd;

  // One verdict; `details` are printed with a failed one.
  void Check(const std::string& what, bool holds, const std::vector<std::string>& details = {});

  void ShowFigures(const std::vector<std::unique_ptr<SoakPort>>& ports, double seconds) const;

  // The last line. The program's exit status.
  int Conclude() const;

 private:
  unsigned passed = 0;
  unsigned failed = 0;
};
