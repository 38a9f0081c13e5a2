// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "relay/Packet.h"
#include "simulation/Network.h"

namespace simulation {

class LinkModel;
class Machine;

// A port from its open on, as one link knows it.
struct PortModel {
  std::string name;
  std::string node;
  const LinkModel* link = nullptr;
  bool isAnswered = false;  // its open, with status 0
  bool isClosing = false;   // a close is carried out, or was
  bool isClosed = false;    // that one is over
  Time cameBackAt = 0;      // the last time its device was open again
};

// A command from its last byte on, until the service asks for more.
struct Command {
  relay::ParsedPacket parsed;
  Time began = 0;
  std::shared_ptr<PortModel> port;  // that it opens, closes or writes to
  bool isConfigured = false;        // as the configuration said when it was read
  std::string node;                 // to which the last search has led
  int lines = 0;                    // of the log: what is carried out
  bool isAnswered = false;
  bool hasFailed = false;   // its device
  bool hasGivenUp = false;  // to write
  size_t block = 0;         // that is written
  size_t written = 0;       // of it
  bool isOffered = false;   // again, behind a write that failed

  const relay::Packet& Packet() const { return parsed.packet; }
  // The block of which something is still to be written, or null.
  const std::string* Rest();
  bool Is(uint8_t command) const {
    return parsed.problem.empty() && parsed.packet.command == command;
  }
};

// One connection: the service carries out one command after the other, in their order, and answers
// each open and close once.
class LinkModel {
 public:
  LinkModel(const Machine& wanted, std::shared_ptr<const Connection> wantedConnection);

  // The service may stop to answer: the peer has gone, or the service itself has closed it.
  bool IsOver() const;
  bool Is(const Connection& other) const { return connection.get() == &other; }

  void AsksForMore();
  void Takes(std::string_view bytes);
  void Ends() { hasEnded = true; }
  void Answers(const relay::Packet& reply);
  void Writes(const PortModel& port, std::string_view bytes);
  void Logs(const std::string& message);

  // Where the name of the open that is carried out leads to; empty: nowhere.
  std::string NodeOfOpen() const;

  std::optional<Command> current;
  std::map<std::string, std::shared_ptr<PortModel>> ports;  // that are open
  std::map<int, relay::PacketCutter> sent;  // by thread: no packet's part is another's
  int receiver = 0;                         // the thread that takes commands

 private:
  void Begin(std::string_view packet);
  void CompleteCurrent();
  void TakesEffect();
  int StatusOfOpen() const;
  void Expect(bool holds, const std::string& otherwise) const;

  const Machine& machine;
  const std::shared_ptr<const Connection> connection;
  std::string stream;  // of the command that is not whole yet
  bool hasEnded = false;
};

}  // namespace simulation
