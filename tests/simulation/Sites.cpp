// SPDX-License-Identifier: MIT
#include "simulation/Sites.h"

namespace simulation {
namespace {

constexpr int kNames = 12;
constexpr size_t kPlenty = 1'000'000;

}  // namespace

Sites::Sites(Machine& wanted) : machine(wanted) {
  sites[0].port = relay::Port::FromText("#PhysicalPort0");
  for (size_t i = 1; i < kCount; ++i) {
    sites[i].place = static_cast<int>(i) - 1;
    sites[i].port = relay::Port::FromText("#USBSerialPort" + std::to_string(sites[i].place));
  }
  for (Site& site : sites) {
    Plug(site);
  }
}

// The first name that is free, as a kernel gives it, or any other one.
std::string Sites::NameFor(const Site& site) const {
  if (site.place == -1) {
    return "/dev/ttyS2";
  }
  uint64_t number = machine.kernel.Choice().Draw(4) == 0 ? machine.kernel.Choice().Draw(9) : 0;
  while (machine.nodes.contains("/dev/ttyUSB" + std::to_string(number))) {
    ++number;
  }
  return "/dev/ttyUSB" + std::to_string(number);
}

void Sites::Plug(Site& site) {
  if (site.line != nullptr) {
    return;
  }
  const std::string node = NameFor(site);
  site.line = machine.Plug(node);
  if (site.place != -1) {
    machine.Place(site.place, node);
  }
}

// The database tells of it at once or not.
void Sites::Unplug(Site& site) {
  if (site.line == nullptr) {
    return;
  }
  machine.Unplug(site.line->node, *site.line);
  if (machine.kernel.Choice().OneIn(2)) {
    machine.Displace(site.place);
  }
  site.line = nullptr;
}

void Sites::Configure() {
  std::vector<std::string> some;
  for (const Site& site : sites) {
    if (machine.kernel.Choice().Draw(3) != 0) {
      some.push_back(site.port.name);
    }
  }
  machine.Configure(some);
}

// An open port may hold any name: it gets a line there, too.
void Sites::Mend() {
  for (int number = 0; number < kNames; ++number) {
    const std::string node = "/dev/ttyUSB" + std::to_string(number);
    if (!machine.nodes.contains(node)) {
      machine.Plug(node)->room = kPlenty;
    }
  }
  std::vector<std::string> all;
  for (Site& site : sites) {
    all.push_back(site.port.name);
    Plug(site);
    site.line->openTakes = 0;
    site.line->room = kPlenty;
  }
  machine.Configure(all);
}

}  // namespace simulation
