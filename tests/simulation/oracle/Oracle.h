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
#include "simulation/oracle/LinkModel.h"
#include "simulation/oracle/StopModel.h"
#include "simulation/oracle/Streams.h"

namespace simulation {

class Machine;

class Oracle {
 public:
  explicit Oracle(const Machine& wanted);

  // The link. The service takes bytes, and asks for more when it has done with them.
  void Accepts(const std::shared_ptr<Connection>& connection);
  void AsksForMore(const Connection& connection);
  void Takes(const Connection& connection, std::string_view bytes);
  void SeesTheEnd(const Connection& connection);
  // `isWhole`: all that the call was to send has gone.
  void Sends(const Connection& connection, std::string_view bytes, bool isWhole);

  // Lines. A use is an open description.
  void Opens(const void* use, const std::shared_ptr<const Line>& line);
  void FailsToOpen();
  void FailsToSetUp();  // what this thread has just opened
  void AsksToRead(const void* use);
  void Reads(const void* use, std::string_view bytes);
  void Writes(const void* use, std::string_view bytes);
  void FailsToWrite();
  void Flushes(const void* use);
  void Closes(const void* use);

  // The service listens, and takes who comes; or refuses who comes from elsewhere.
  void Listens() { stop.Listens(); }
  void MayFail() { stop.MayFail(); }

  // What a search finds: the node at each place.
  void Searches(const std::map<int, std::string>& places);

  // The log, and what is written to the standard streams 1 and 2.
  void Logs(std::string_view text);
  void Prints(bool isError, std::string_view text);

  // A call in which the thread may wait: "read(5".
  void MayWait(const std::string& call) const;

  // How the run ended: the same, or what is wrong with it.
  std::string Judge(const std::string& ending) const;

 private:
  struct Use {
    std::shared_ptr<PortModel> port;
    std::shared_ptr<const Line> line;
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

  LinkModel* LinkOf(const Connection& connection);
  LinkModel* CommandingLink();  // whose commands this thread carries out
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
