// SPDX-License-Identifier: MIT
#include "simulation/Relay.h"

#include <utility>

namespace simulation {
namespace {

constexpr uint16_t kRelayPort = 60004;
constexpr Time kPatience = 60 * kSecond;

std::string TextOf(const relay::Packet& packet) {
  if (packet.command == kCommandData) {
    return "data " + packet.port.Text();
  }
  const char* const verb = packet.command == kCommandOpen ? "open " : "close ";
  return verb + packet.port.Text() + " " + std::to_string(packet.number.value_or(0));
}

}  // namespace

void Relay::Connect() {
  if (!TryToConnect() && !TryToConnect()) {
    machine.kernel.Defect("nobody listens for a minute");
  }
}

bool Relay::TryToConnect(in_addr_t from) {
  if (link != nullptr) {
    simulation::Reset(*link);  // nobody reads there any more
  }
  packets.Clear();
  const Woken woken = machine.kernel.Wait([this] { return machine.network.Takes(kRelayPort); },
                                          machine.kernel.Now() + kPatience / 2, Waits::kThrough);
  if (woken == Woken::kReady) {
    link = machine.network.Connect(kRelayPort, from);
    machine.kernel.Note("connects");
  }
  return woken == Woken::kReady;
}

void Relay::Send(std::string_view bytes) {
  machine.kernel.Note("sends " + std::to_string(bytes.size()));
  link->service.waiting += bytes;
  machine.kernel.Point();
}

std::string Relay::Next() {
  Kernel& kernel = machine.kernel;
  End& end = link->peer;
  for (;;) {
    if (const auto packet = packets.Next()) {
      const relay::ParsedPacket parsed =
          relay::ParsePacket(*packet, relay::Direction::kFromService);
      if (!parsed.problem.empty()) {
        kernel.Defect("the service sent a packet that has " + parsed.problem);
      }
      if (parsed.packet.command == kCommandData) {
        data += parsed.packet.Data();
      }
      return TextOf(parsed.packet);
    }
    const Woken woken =
        kernel.Wait([&end] { return !end.waiting.empty() || end.hasEnded || end.isReset; },
                    kernel.Now() + kPatience, Waits::kThrough);
    if (woken == Woken::kTimeout) {
      kernel.Defect("nothing comes for a minute");
    }
    if (end.waiting.empty()) {
      return end.isReset ? "reset" : "end";
    }
    packets.Add(std::exchange(end.waiting, {}));
  }
}

std::string Relay::Answer(std::string_view command) {
  Send(command);
  for (;;) {
    std::string text = Next();
    if (!text.starts_with("data ")) {
      return text;
    }
  }
}

void Relay::AwaitData(size_t count) {
  while (data.size() < count) {
    if (!Next().starts_with("data ")) {
      machine.kernel.Defect("something else than data came");
    }
  }
}

void Relay::TakeAll() {
  if (link != nullptr) {
    link->peer.waiting.clear();
  }
}

void Relay::TakesAtOnce(size_t bytes) { link->peer.room = bytes; }

void Relay::Finish() {
  machine.kernel.Note("finishes");
  simulation::Finish(*link);
  machine.kernel.Point();
}

void Relay::Reset() {
  machine.kernel.Note("resets");
  simulation::Reset(*link);
  machine.kernel.Point();
}

}  // namespace simulation
