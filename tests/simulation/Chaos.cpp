// SPDX-License-Identifier: MIT
#include "simulation/Chaos.h"

#include <array>
#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "simulation/Relay.h"

namespace simulation {
namespace {

constexpr int kPorts = 3;

struct Site {
  relay::Port port;
  std::string node;
  std::shared_ptr<Line> line;  // null: unplugged
};

// Bytes of which one that is missing, comes twice or in another place is noticed: a generator's.
class Bytes {
 public:
  std::string Next(uint64_t count) {
    std::string some(count, '\0');
    for (char& byte : some) {
      state = state * 6364136223846793005 + 1442695040888963407;
      byte = static_cast<char>(state >> 56);
    }
    return some;
  }

 private:
  uint64_t state = 1;
};

// Does what relays, adapters and lines do, in any order, and asks for nothing but that the service
// keeps to the protocol.
class Chaos {
 public:
  explicit Chaos(Machine& wanted) : machine(wanted), kernel(wanted.kernel), relay(wanted) {
    sites[0] = {relay::Port::FromText("#PhysicalPort0"), "/dev/ttyS2", nullptr};
    for (int i = 1; i < kPorts; ++i) {
      const std::string number = std::to_string(i - 1);
      sites[static_cast<size_t>(i)] = {relay::Port::FromText("#USBSerialPort" + number),
                                       "/dev/ttyUSB" + number, nullptr};
      machine.Place(i - 1, "/dev/ttyUSB" + number);
    }
    for (Site& site : sites) {
      site.line = machine.Plug(site.node);
    }
  }

  void Play() {
    relay.Connect();
    for (uint64_t left = 5 + Draw(30); left > 0; --left) {
      DoSomething();
      Pause();
      relay.TakeAll();
    }
    kernel.Sleep(300 * kMillisecond);
    kernel.SendToProcess(std::array{SIGINT, SIGTERM, SIGHUP}[Draw(3)]);
    while (Draw(3) != 0) {
      DoSomething();
      Pause();
    }
    kernel.SendToProcess(SIGTERM);
    (void)kernel.Wait([] { return false; }, kForever, Waits::kThrough);
  }

 private:
  uint64_t Draw(uint64_t count) { return kernel.Choice().Draw(count); }
  Site& Any() { return sites[Draw(kPorts)]; }

  // Mostly none: what comes at once is what races.
  void Pause() {
    switch (Draw(4)) {
      case 0:
        return kernel.Sleep(static_cast<Time>(Draw(3000)) * kMillisecond);
      case 1:
        return kernel.Sleep(static_cast<Time>(Draw(120)) * kMillisecond);
      default:
        return kernel.Point();
    }
  }

  void DoSomething() {
    Site& site = Any();
    switch (Draw(12)) {
      case 0:
      case 1:
      case 2:
        return relay.Send(OpenCommand(site.port));
      case 3:
        return relay.Send(CloseCommand(site.port));
      case 4:
      case 5:
        return relay.Send(DataCommand(site.port, Blocks()));
      case 6:
      case 7:
        return Receive(site);
      case 8:
        return Unplug(site);
      case 9:
        return Plug(site);
      case 10:
        return Relink();
      default:
        return relay.Send(std::string("\0\3\1", 3));
    }
  }

  std::vector<relay::Block> Blocks() {
    std::vector<relay::Block> blocks = {{1, bytes.Next(1 + Draw(3000))}};
    while (Draw(3) == 0) {
      blocks.push_back({static_cast<uint8_t>(Draw(256)), bytes.Next(Draw(4))});
    }
    return blocks;
  }

  void Receive(Site& site) {
    if (site.line != nullptr) {
      site.line->DeviceSends(bytes.Next(1 + Draw(300)));
      (void)site.line->DeviceTakes();
    }
  }

  void Unplug(Site& site) {
    if (site.line != nullptr) {
      machine.Unplug(site.node, *site.line);
      site.line = nullptr;
    }
  }

  void Plug(Site& site) {
    if (site.line == nullptr) {
      site.line = machine.Plug(site.node);
      site.line->openTakes = Draw(4) == 0 ? static_cast<Time>(Draw(4000)) * kMillisecond : 0;
    }
  }

  void Relink() {
    if (Draw(2) == 0) {
      relay.Finish();
      Pause();
    } else {
      relay.Reset();
    }
    // While the service looks for an adapter that data are for, or waits for a line to take them,
    // it listens to nobody.
    for (int left = kPorts; left > 0 && !relay.TryToConnect(); --left) {
      for (Site& site : sites) {
        Plug(site);
        (void)site.line->DeviceTakes();
      }
    }
    relay.Connect();
  }

  Machine& machine;
  Kernel& kernel;
  Relay relay;
  Bytes bytes;
  std::array<Site, kPorts> sites;
};

}  // namespace

Scenario ChaosScenario() {
  return {"chaos",
          [](Machine& machine) {
            const auto chaos = std::make_shared<Chaos>(machine);
            (void)machine.kernel.Spawn("chaos", false, [chaos] { chaos->Play(); });
          },
          {"exit 0", "exit 255"},
          false};
}

}  // namespace simulation
