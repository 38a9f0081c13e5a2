// SPDX-License-Identifier: MIT
#include "simulation/Chaos.h"

#include <array>
#include <csignal>
#include <functional>
#include <memory>
#include <string>

#include "simulation/Scenario.h"
#include "simulation/Scripts.h"
#include "simulation/Sites.h"
#include "simulation/Talk.h"

namespace simulation {
namespace {

// Does what relays, adapters and lines do, in any order, with the faults that the seed has chosen.
// What may come of it the oracle knows; in the end everything works again.
class Chaos {
 public:
  explicit Chaos(Machine& wanted)
      : machine(wanted),
        kernel(wanted.kernel),
        relay(wanted),
        talk(kernel.Choice()),
        sites(wanted) {}

  void Play() {
    machine.faults.Draw(kernel.Choice());
    canGoSilent = machine.faults.Have(Fault::kNoThread);
    relay.Connect();
    for (uint64_t left = 5 + Draw(30); left > 0; --left) {
      DoSomething();
      Pause();
      Read();
    }
    if (!canGoSilent && Draw(3) == 0) {
      Calm();
    }
    Stop();
  }

 private:
  uint64_t Draw(uint64_t count) { return kernel.Choice().Draw(count); }
  Site& Any() { return sites[Draw(Sites::kCount)]; }

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
    switch (Draw(13)) {
      case 0:
      case 1:
      case 2:
        return relay.Send(OpenCommand(site.port));
      case 3:
      case 4:
        return Say(talk.Command(site.port));
      case 5:
        return Say(talk.Command(site.port) + talk.Command(Any().port) + talk.Command(Any().port));
      case 6:
      case 7:
        return Receive(site);
      case 8:
        return sites.Unplug(site);
      case 9:
        return Plug(site);
      case 10:
        return Draw(2) == 0 ? Relink() : ReadOrNot();
      case 11:
        return sites.Configure();
      default:
        return Say(talk.Nonsense());
    }
  }

  // In one piece, or in two with others in between.
  void Say(const std::string& text) {
    const size_t first = Draw(3) == 0 ? Draw(text.size()) : text.size();
    relay.Send(text.substr(0, first));
    if (first < text.size()) {
      Pause();
      relay.Send(text.substr(first));
    }
  }

  void ReadOrNot() {
    reads = !reads;
    relay.TakesAtOnce(reads ? kRoom : 50);
  }

  void Read() {
    if (reads) {
      relay.TakeAll();
    }
  }

  void Receive(Site& site) {
    if (site.line != nullptr) {
      site.line->DeviceSends(talk.Bytes(1 + Draw(300)));
      (void)site.line->DeviceTakes();
    }
  }

  void Plug(Site& site) {
    sites.Plug(site);
    site.line->openTakes = Draw(4) == 0 ? static_cast<Time>(Draw(4000)) * kMillisecond : 0;
  }

  void Relink() {
    if (Draw(2) == 0) {
      relay.Finish();
      Pause();
    } else {
      relay.Reset();
    }
    reads = true;
    // While the service looks for an adapter that data are for, or waits for a line to take them,
    // it listens to nobody.
    for (size_t left = Sites::kCount; left > 0 && !relay.TryToConnect(); --left) {
      sites.Mend();
      for (Site& site : sites) {
        (void)site.line->DeviceTakes();
      }
    }
    if (!canGoSilent) {
      relay.Connect();
    }
  }

  // The faults are over: a new link opens every port, and bytes come through both ways.
  void Calm() {
    machine.faults.End();
    sites.Mend();
    relay.Reset();
    relay.data.clear();
    // Who was held up while a port was closed still discards what waits in its line.
    kernel.Sleep(kLongestStall);
    std::string answer = AnswerOfNextLink(kernel, relay, OpenCommand(sites[0].port));
    for (Site& site : sites) {
      if (site.place != -1) {
        answer = relay.Answer(OpenCommand(site.port));
      }
      Expect(kernel, Reply("open", site.port, 0), answer);
      (void)site.line->DeviceTakes();
      site.line->DeviceSends(talk.Bytes(20));
      relay.Send(DataCommand(site.port, {{1, talk.Bytes(20)}}));
    }
    relay.AwaitData(20 * Sites::kCount);
    for (Site& site : sites) {
      const auto has = [&site] { return site.line->output.size() == 20; };
      if (kernel.Wait(has, kernel.Now() + 60 * kSecond, Waits::kThrough) == Woken::kTimeout) {
        kernel.Defect("a device gets nothing");
      }
    }
  }

  void Stop() {
    kernel.Sleep(300 * kMillisecond);
    do {
      kernel.SendToProcess(std::array{SIGINT, SIGTERM, SIGHUP}[Draw(3)]);
    } while (Draw(4) == 0);
    while (Draw(3) != 0) {
      DoSomething();
      Pause();
    }
    kernel.SendToProcess(SIGTERM);
    (void)kernel.Wait([] { return false; }, kForever, Waits::kThrough);
  }

  static constexpr size_t kRoom = 65536;
  static constexpr Time kLongestStall = 10 * kSecond;

  Machine& machine;
  Kernel& kernel;
  Relay relay;
  Talk talk;
  Sites sites;
  bool reads = true;
  bool canGoSilent = false;  // a link without a thread is silent for good
};

void TroubleStreams(Machine& machine) {
  switch (machine.kernel.Choice().Draw(8)) {
    case 0:
      return LeaveTheLogUnread(machine);
    case 1:
      return ReadErrorsSlowly(machine);
    default:
      return;
  }
}

}  // namespace

Scenario ChaosScenario() {
  return {"chaos",
          [](Machine& machine) {
            TroubleStreams(machine);
            const auto chaos = std::make_shared<Chaos>(machine);
            (void)machine.kernel.Spawn("chaos", false, [chaos] { chaos->Play(); });
          },
          {"exit 0", "exit 255", "signal 6"},
          false};
}

}  // namespace simulation
