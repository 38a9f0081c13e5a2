// SPDX-License-Identifier: MIT
#pragma once

#include <bitset>
#include <cstdint>

#include "simulation/Chooser.h"

namespace simulation {

// What can go wrong at a call.
enum class Fault {
  kOpenFails,      // of a device, with any errno
  kOpenIsSlow,     // and then succeeds
  kSetUpFails,     // of a device
  kReadFails,      // from a device, with any errno
  kWriteFails,     // to a device, with any errno
  kWriteTakesOne,  // byte
  kSearchIsSlow,
  kSearchFails,  // and leaves no database, or half of one
  kNoThread,
  kNoDescriptor,  // for a connection, or the socket that listens
  kReceiveFails,  // of a connection: it timed out
  kCount
};

// Which faults a run has, and when they strike. Most runs have none or few: with all of them at
// once nothing would ever come far enough to go wrong.
class Faults {
 public:
  // The seed's choice, to be made once. Before it nothing goes wrong.
  void Draw(Chooser& decisions);
  void End() { enabled.reset(); }

  bool Have(Fault fault) const { return enabled[static_cast<size_t>(fault)]; }
  // At this call.
  bool Strike(Fault fault) { return Have(fault) && chooser->OneIn(rarity); }
  // A device's, a file's or a tool's reason.
  int Errno();

 private:
  Chooser* chooser = nullptr;
  std::bitset<static_cast<size_t>(Fault::kCount)> enabled;
  uint64_t rarity = 1;  // one in so many calls fails
};

}  // namespace simulation
