// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <memory>
#include <string>

#include "relay/Packet.h"
#include "simulation/Machine.h"

namespace simulation {

// A place to which a port's name leads, and what is plugged in there.
struct Site {
  relay::Port port;
  int place = -1;              // of a USB adapter
  std::shared_ptr<Line> line;  // null: unplugged
};

// The UART and two USB places, whose adapters come and go under any name, in any order.
class Sites {
 public:
  static constexpr size_t kCount = 3;

  explicit Sites(Machine& wanted);

  Site& operator[](size_t index) { return sites[index]; }
  auto begin() { return sites.begin(); }
  auto end() { return sites.end(); }

  void Plug(Site& site);
  void Unplug(Site& site);
  // Some of them have no settings.
  void Configure();
  // Everything is there, has settings, takes what comes and answers at once.
  void Mend();

 private:
  std::string NameFor(const Site& site) const;

  Machine& machine;
  std::array<Site, kCount> sites;
};

}  // namespace simulation
