// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "relay/Packet.h"
#include "simulation/Chooser.h"

namespace simulation {

// What a relay may say: commands that make sense, commands that make none, and no commands.
class Talk {
 public:
  explicit Talk(Chooser& decisions) : chooser(decisions) {}

  // Bytes of which one that is missing, comes twice or in another place is noticed: a generator's.
  std::string Bytes(size_t count);

  std::string Data(const relay::Port& port);
  std::string Command(const relay::Port& port);
  // Not of the right form, for nobody, or by ids.
  std::string Nonsense();

 private:
  uint64_t Draw(uint64_t count) { return chooser.Draw(count); }
  std::string Random();
  std::string Damaged(std::string packet);

  Chooser& chooser;
  uint64_t state = 1;
};

}  // namespace simulation
