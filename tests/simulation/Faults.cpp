// SPDX-License-Identifier: MIT
#include "simulation/Faults.h"

#include <array>
#include <cerrno>

namespace simulation {

void Faults::Draw(Chooser& decisions) {
  chooser = &decisions;
  constexpr std::array<uint64_t, 4> kHowMany = {0, 1, 2, 4};
  constexpr std::array<uint64_t, 3> kRarities = {2, 5, 20};
  for (uint64_t left = kHowMany[chooser->Draw(kHowMany.size())]; left > 0; --left) {
    enabled.set(chooser->Draw(enabled.size()));
  }
  rarity = kRarities[chooser->Draw(kRarities.size())];
}

int Faults::Errno() {
  constexpr std::array kReasons = {EIO,    ENXIO, EBUSY,  EACCES, ENOENT, ENODEV,
                                   EAGAIN, EINTR, ENOMEM, EMFILE, ENFILE, EPERM};
  return kReasons[chooser->Draw(kReasons.size())];
}

}  // namespace simulation
