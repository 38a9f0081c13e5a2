// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "relay/Packet.h"
#include "simulation/Machine.h"

namespace simulation {

// The relay service, as an actor plays it. What does not come within a minute is a defect.
class Relay {
 public:
  explicit Relay(Machine& site) : machine(site) {}

  void Connect();
  bool TryToConnect(in_addr_t from = INADDR_LOOPBACK);  // for half a minute
  void Send(std::string_view bytes);
  // What the service sends next: "open #PhysicalPort0 0", with the status, or "data
  // #PhysicalPort0"; "end" and "reset" are the link's.
  std::string Next();
  // Data notifications that come before are kept in `data`.
  std::string Answer(std::string_view command);
  // Waits until so many bytes of data have come in all.
  void AwaitData(size_t count);
  // Reads what has come and looks at nothing: the oracle knows what was sent.
  void TakeAll();
  void TakesAtOnce(size_t bytes);  // no more are on their way to it
  void Finish();
  void Reset();

  std::string data;  // of all ports

 private:
  Machine& machine;
  std::shared_ptr<Connection> link;
  relay::PacketCutter packets;
};

}  // namespace simulation
