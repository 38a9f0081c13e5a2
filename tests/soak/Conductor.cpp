// SPDX-License-Identifier: MIT
#include "soak/Conductor.h"

#include <algorithm>
#include <thread>

using std::chrono::milliseconds;

namespace {

constexpr milliseconds kTick{5};
constexpr size_t kMaxWaitingBytes = 16384;  // at the relay, before it waits itself

// A close takes up to 0.2 s, a stall 4 s, a device is away for 3 s and may hold all others up.
constexpr std::chrono::seconds kMaxDownTime{60};

}  // namespace

Conductor::Conductor(World& soakWorld, Plan& soakPlan, Report& soakReport)
    : world(soakWorld), plan(soakPlan), report(soakReport) {}

bool Conductor::RunUntil(const std::function<bool()>& condition, Clock::duration limit) {
  const Clock::time_point end = Clock::now() + limit;
  Clock::time_point next = Clock::now();
  while (!condition()) {
    if (Clock::now() > end || (!stops && world.Process().State() != "still running")) {
      return false;
    }
    Tick();
    next = std::max(next + kTick, Clock::now());
    std::this_thread::sleep_until(next);
  }
  return true;
}

void Conductor::RunFor(Clock::duration time) {
  (void)RunUntil([] { return false; }, time);
}

bool Conductor::AllUp() const {
  return std::all_of(world.Ports().begin(), world.Ports().end(),
                     [](const auto& port) { return port->IsUp(); });
}

bool Conductor::AllDrained() const {
  return std::all_of(world.Ports().begin(), world.Ports().end(), [](const auto& port) {
    return port->FromDevice().IsDrained() && port->ToDevice().IsDrained();
  });
}

// The output first: what it says comes before the answers that are read next.
void Conductor::Tick() {
  ReadOutput();
  world.ReadErrors();
  PlayRelay();
  for (const auto& port : world.Ports()) {
    port->Tick(sendsData);
    if (port->IsDownFor(kMaxDownTime)) {
      defects.push_back(port->Name() + " did not come up in time");
    }
  }
  if (makesFaults && Clock::now() >= nextFault) {
    MakeFault();
  }
}

void Conductor::ReadOutput() {
  for (const std::string& line : world.OutputLines()) {
    if (line.starts_with("[LISTEN]")) {
      isListening = true;
    }
    for (const auto& port : world.Ports()) {
      if (line == "OPEN[" + port->Path() + "]") {
        port->LineOpens();
      }
    }
  }
}

void Conductor::PlayRelay() {
  if (!link.IsConnected()) {
    Connect();
    return;
  }
  if (Clock::now() >= stallUntil) {
    Receive();
  }
  if (link.IsConnected() && !isLeaving && !stops) {
    OpenPorts();
    SendData();
    link.Flush();
  }
}

void Conductor::Connect() {
  if (isListening && Clock::now() >= connectAt && link.Connect()) {
    isListening = false;
    isLeaving = false;
  }
}

void Conductor::Receive() {
  for (const Packet& packet : link.Receives()) {
    Take(packet);
  }
  if (link.IsMalformed()) {
    defects.push_back("a packet that the service never sends");
  }
  if (!link.HasEnded() && !link.IsMalformed()) {
    return;
  }
  if (!isLeaving && !stops) {
    defects.push_back("the service ended the link");
    LinkEnds();
  }
  link.Leaves();
}

void Conductor::Take(const Packet& packet) {
  if (!packet.reply.empty()) {
    TakeReply(packet.reply);
    return;
  }
  for (const auto& port : world.Ports()) {
    if (port->Name() == packet.name) {
      port->FromDeviceArrives(packet.data);
      return;
    }
  }
  defects.push_back("data from a port with another name: " + packet.name);
}

// Answers come in the order of the commands.
void Conductor::TakeReply(const std::string& reply) {
  if (isLeaving) {
    return;
  }
  const std::string awaited = awaitedReplies.empty() ? "none" : awaitedReplies.front();
  if (!awaitedReplies.empty()) {
    awaitedReplies.pop_front();
  }
  if (reply != awaited) {
    defects.push_back("the answer " + reply + " instead of " + awaited);
  }
  garbageFenced += reply == "close Y 2" ? 1U : 0U;
  for (const auto& port : world.Ports()) {
    if (reply == "open " + port->Name() + " 0") {
      port->Opens();
    } else if (reply == "close " + port->Name() + " 0") {
      port->Closes(plan.TimeBetween(50, 1500));
    }
  }
}

// The service closes all ports, and listens anew.
void Conductor::LinkEnds() {
  for (const auto& port : world.Ports()) {
    port->LosesLink(plan.TimeBetween(0, 500));
  }
  awaitedReplies.clear();
  connectAt = Clock::now() + plan.TimeBetween(0, 1500);
  stallUntil = Clock::now();
}

void Conductor::SendData() {
  for (const auto& port : world.Ports()) {
    if (link.WaitingBytes() > kMaxWaitingBytes) {
      ++report.relayWaits;
      return;
    }
    if (sendsData) {
      link.Sends(port->NextCommand());
    }
  }
}

void Conductor::OpenPorts() {
  for (const auto& port : world.Ports()) {
    if (port->MayOpen()) {
      port->AsksToOpen();
      Command(relay::OpenCommand({port->Name()}), "open " + port->Name() + " 0");
    }
  }
}

void Conductor::Command(const std::string& packet, const std::string& reply) {
  link.Sends(packet);
  awaitedReplies.push_back(reply);
}
