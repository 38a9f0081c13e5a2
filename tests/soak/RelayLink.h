// SPDX-License-Identifier: MIT
// The relay of the soak: unlike the tests' Relay it never waits, so that one thread can play the
// relay and all devices at the same time.
#pragma once

#include <string>
#include <vector>

#include "relay/Packet.h"

// One packet from the service.
struct Packet {
  std::string reply;  // command, name and status of an answer: "open #PhysicalPort0 0"
  std::string name;   // the port of a data notification,
  std::string data;   // and its bytes
};

class RelayLink {
 public:
  RelayLink() = default;
  ~RelayLink();
  RelayLink(const RelayLink&) = delete;
  RelayLink& operator=(const RelayLink&) = delete;

  bool Connect();
  bool IsConnected() const { return stream != -1; }
  int Descriptor() const { return stream; }

  // Sends as soon as the link takes it.
  void Sends(const std::string& bytes) { waiting += bytes; }
  size_t WaitingBytes() const { return waiting.size(); }
  void Flush();

  // The packets that have come. Sets HasEnded when the service has ended the link, and IsMalformed
  // when a packet is none that the service sends.
  std::vector<Packet> Receives();
  bool HasEnded() const { return hasEnded; }
  bool IsMalformed() const { return isMalformed; }

  void EndsSending();
  void Leaves();
  void Resets();

 private:
  int stream = -1;
  bool hasEnded = false;
  bool isMalformed = false;
  bool endsSending = false;
  std::string waiting;
  relay::PacketCutter received;
};
