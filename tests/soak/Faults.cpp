// SPDX-License-Identifier: MIT
// The part of the conductor that breaks things.
#include <algorithm>

#include "soak/Conductor.h"
#include "soak/Garbage.h"

namespace {

// Names that no port has. The answer behind a garbage packet shows that the link stands.
constexpr const char* kNobody = "X";
constexpr const char* kNobodyClosed = "close X 2";
constexpr const char* kFence = "Y";
constexpr const char* kFenceClosed = "close Y 2";

}  // namespace

void Conductor::MakeFault() {
  nextFault = Clock::now() + plan.TimeBetween(100, 2000);
  const auto missing = std::find(report.faults.begin(), report.faults.end(), 0U);
  const size_t kind = missing != report.faults.end()  // also a short soak has each kind
                          ? static_cast<size_t>(missing - report.faults.begin())
                          : plan.NextFault();
  if (Make(kFaultKinds[kind].fault)) {
    ++report.faults[kind];
  }
}

// False when nothing is in a state for it.
bool Conductor::Make(Fault fault) {
  switch (fault) {
    case Fault::kUnplug:
    case Fault::kClose:
    case Fault::kOpenTwice:
      return MakeAtPort(fault);
    default:
      return link.IsConnected() && !isLeaving && MakeAtLink(fault);
  }
}

// A close may meet a device that is away; an unplugging meets only a port that is up, so that what
// the service says of its device is never older than the device.
bool Conductor::MakeAtPort(Fault fault) {
  SoakPort& port = *world.Ports()[plan.Between(0, world.Ports().size() - 1)];
  if (!port.IsUp() && !(fault == Fault::kClose && port.State() == SoakPort::Door::kOpen)) {
    return false;
  }
  if (fault == Fault::kUnplug) {
    port.Unplugs(plan.TimeBetween(100, 3000));
  } else if (fault == Fault::kClose) {
    port.AsksToClose();
    Command(relay::CloseCommand({port.Name()}), "close " + port.Name() + " 0");
  } else {
    Command(relay::OpenCommand({port.Name()}), "open " + port.Name() + " 3");
  }
  return true;
}

bool Conductor::MakeAtLink(Fault fault) {
  switch (fault) {
    case Fault::kGarbage:
      link.Sends(Garbage(plan));
      Command(relay::CloseCommand({kFence}), kFenceClosed);
      return true;
    case Fault::kCloseUnknown:
      Command(relay::CloseCommand({kNobody}), kNobodyClosed);
      return true;
    case Fault::kRelayStall:
      stallUntil = Clock::now() + plan.TimeBetween(500, 4000);
      return true;
    case Fault::kRelayLeaves:
      LinkEnds();
      link.EndsSending();
      isLeaving = true;
      return true;
    default:
      LinkEnds();
      link.Resets();
      return true;
  }
}
