// SPDX-License-Identifier: MIT
// What must hold at the borders between the service and its kernel, after docs/protocol.md,
// README.md and docs/operations.md, and nothing of the service's own code. The simulated kernel
// tells what passes; what does not fit the documents is a defect.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "simulation/Network.h"
#include "simulation/Terminal.h"
#include "simulation/Witness.h"
#include "simulation/oracle/LinkModel.h"
#include "simulation/oracle/StopModel.h"
#include "simulation/oracle/Streams.h"

namespace simulation {

class Machine;

class Oracle : public Witness {
 public:
  explicit Oracle(const Machine& wanted);

  void Accepts(const std::shared_ptr<Connection>& connection) override;
  void AsksForMore(const Connection& connection) override;
  void Takes(const Connection& connection, std::string_view bytes) override;
  void SeesTheEnd(const Connection& connection) override;
  void Sends(const Connection& connection, std::string_view bytes, bool isWhole) override;
  void Makes(int thread) override;
  void Opens(const void* use, const std::shared_ptr<const Line>& line) override;
  void FailsToOpen() override;
  void FailsToSetUp(const void* use) override;
  void AsksToRead(const void* use) override;
  void Reads(const void* use, std::string_view bytes) override;
  void FailsToRead(const void* use) override;
  void Writes(const void* use, std::string_view bytes) override;
  void FailsToWrite() override;
  void Flushes(const void* use) override;
  void Closes(const void* use) override;
  void Listens() override { stop.Listens(); }
  void MayFail() override { stop.MayFail(); }
  void Configures(const std::string& text) override;
  void Searches(const std::map<int, std::string>& places) override;
  void Logs(std::string_view text) override;
  void Prints(bool isError, std::string_view text) override;
  void MayWait(const std::string& call) const override;
  std::string Judge(const std::string& ending) const override;

 private:
  struct Use {
    std::shared_ptr<PortModel> port;
    std::shared_ptr<const Line> line;
    bool isLate = false;  // opened behind the close of its port
    bool isFlushed = false;
    bool isRead = false;  // by its port's thread
    bool isUsed = false;  // something was read or written
    bool hasFailed = false;

    bool HasFailed() const { return hasFailed || line->isGone; }
  };

  // What one thread of the service has in hand.
  struct Hand {
    std::shared_ptr<PortModel> port;  // that it receives for
    std::string unsent;               // read and not sent yet
    bool isShown = false;             // in the hex dump
    std::string opened;               // a node, and nothing on the console as yet
    std::shared_ptr<const Use> use;   // that it reads, and has not let go
  };

  void ForgetEnded();
  LinkModel* LinkOf(const Connection& connection);
  LinkModel* CommandingLink();  // whose commands this thread carries out
  static relay::ParsedPacket Parsed(const LinkModel& link, std::string_view packet);
  Hand& Mine();
  Use& UseOf(const void* use);
  void Expect(bool holds, const std::string& otherwise) const;
  void Notifies(const LinkModel& link, const relay::Packet& packet);
  void PrintsLine(const std::string& line);
  bool IsForPeople(const std::string& call) const;
  static bool IsGivenUp(const PortModel& port);
  bool WasAway(const std::shared_ptr<PortModel>& port, Time since) const;

  const Machine& machine;
  std::vector<std::unique_ptr<LinkModel>> links;  // the newest last
  std::map<const void*, std::shared_ptr<Use>> uses;
  std::map<std::string, std::shared_ptr<PortModel>> latest;  // that a command has opened, by node
  std::map<int, Hand> hands;                                 // by thread
  Lines output;
  Lines errors;
  StopModel stop;
};

}  // namespace simulation
