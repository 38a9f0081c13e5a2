// SPDX-License-Identifier: MIT
// What the oracle asks of those who open, read, write and close lines.
#include <algorithm>
#include <cstdlib>
#include <utility>

#include "simulation/Machine.h"
#include "simulation/oracle/Oracle.h"

namespace simulation {

Oracle::Use& Oracle::UseOf(const void* use) {
  const auto found = uses.find(use);
  Expect(found != uses.end(), "a line that is not open");
  return *found->second;
}

// What is made while an open is carried out receives for its port.
void Oracle::Makes(int thread) {
  LinkModel* const link = CommandingLink();
  hands[thread].port = link != nullptr && link->current ? link->current->port : nullptr;
}

// For the port that this thread receives for, or that the command names which it carries out.
void Oracle::Opens(const void* use, const std::shared_ptr<const Line>& line) {
  const std::string& node = line->node;
  Hand& mine = Mine();
  mine.opened = node;
  std::shared_ptr<PortModel> port = mine.port;
  if (LinkModel* const link = CommandingLink()) {
    Expect(link->current.has_value(), "a line is opened without a command");
    Command& command = *link->current;
    if (command.Is(kCommandOpen)) {
      Expect(node == link->NodeOfOpen(), node + " is opened, and the name leads elsewhere");
      Expect(command.port == nullptr || link->IsOver(), "opened, and it is open already");
      command.port = std::make_shared<PortModel>();
      command.port->name = command.Packet().port.name;
      command.port->node = node;
      command.port->link = link;
      latest[node] = command.port;
    }
    port = command.port;
  }
  // By a thread that was given up on before its first look, or was about to end.
  if (const auto last = latest.find(node);
      port == nullptr && last != latest.end() && IsGivenUp(*last->second)) {
    port = last->second;
  }
  Expect(port != nullptr, node + " is opened, and nobody has asked for it");
  Expect(node == port->node, "a port is opened again at another node");
  const bool isLate = port->isClosed || port->link != links.back().get();
  uses[use] = std::make_shared<Use>(Use{port, line, isLate, false, false, false, false});
}

void Oracle::FailsToOpen() {
  LinkModel* const link = CommandingLink();
  if (link != nullptr && link->current) {
    link->current->hasFailed = true;
  }
}

void Oracle::FailsToSetUp(const void* use) {
  if (!Mine().opened.empty()) {
    Mine().opened.clear();
    UseOf(use).hasFailed = true;
    FailsToOpen();
  }
}

// Who reads again has sent what it had, unless nobody is there to take it.
void Oracle::AsksToRead(const void* use) {
  Use& it = UseOf(use);
  Hand& mine = Mine();
  if (!it.isRead) {
    Expect(it.isFlushed, "what waited in " + it.line->node + " before its open is read");
    it.isRead = true;
    it.port->cameBackAt = machine.kernel.Now();
  }
  Expect(it.port->isAnswered || it.port->link->IsOver(),
         "a port is read before its open is answered");
  Expect(mine.port == nullptr || mine.port == it.port, "a thread reads for two ports");
  Expect(mine.unsent.empty() || IsGivenUp(*it.port), "bytes of " + it.line->node + " are lost");
  mine.port = it.port;
  mine.use = uses.at(use);
  mine.unsent.clear();
}

void Oracle::Reads(const void* use, std::string_view bytes) {
  UseOf(use).isUsed = true;
  Hand& mine = Mine();
  mine.unsent = bytes;
  mine.isShown = false;
}

void Oracle::FailsToRead(const void* use) { UseOf(use).hasFailed = true; }

void Oracle::Writes(const void* use, std::string_view bytes) {
  Use& it = UseOf(use);
  it.isUsed = true;
  LinkModel* const link = CommandingLink();
  Expect(link != nullptr, "something is written that nobody has sent");
  link->Writes(*it.port, bytes);
}

void Oracle::FailsToWrite() {
  if (LinkModel* const link = CommandingLink(); link != nullptr && link->current) {
    link->current->isOffered = true;
  }
}

bool Oracle::IsGivenUp(const PortModel& port) { return port.isClosing || port.link->IsOver(); }

void Oracle::Flushes(const void* use) {
  Use& it = UseOf(use);
  it.isFlushed = true;
  Expect(!it.isUsed || it.HasFailed() || IsGivenUp(*it.port),
         "what waits in " + it.line->node + " is thrown away");
  Expect(!it.isLate || std::none_of(uses.begin(), uses.end(),
                                    [&it](const auto& other) {
                                      return other.second->line == it.line &&
                                             other.second->isRead &&
                                             other.second->port != it.port &&
                                             !IsGivenUp(*other.second->port);
                                    }),
         "who is to have let go of " + it.line->node + " throws away what waits there");
}

void Oracle::Closes(const void* use) {
  const Use& it = UseOf(use);
  Expect(it.HasFailed() || IsGivenUp(*it.port) || !it.port->isAnswered,
         it.line->node + " is let go, and its port is open");
  uses.erase(use);
}

bool Oracle::WasAway(const std::shared_ptr<PortModel>& port, Time since) const {
  return port->cameBackAt >= since ||
         std::none_of(uses.begin(), uses.end(), [&port](const auto& entry) {
           return entry.second->port == port && entry.second->isRead && !entry.second->HasFailed();
         });
}

// A call on a standard stream or the log.
bool Oracle::IsForPeople(const std::string& call) const {
  const int number = std::atoi(call.c_str() + call.find('(') + 1);
  const auto file = number > 0 ? machine.descriptors.Find(number) : nullptr;
  const mode_t mode = file != nullptr ? file->Status().st_mode : 0;
  return S_ISFIFO(mode) || S_ISREG(mode);
}

// The locks with which a thread may wait: main with none, a receive thread with that of its
// callbacks while it carries out or forwards, and whoever prints with that of what it prints to.
void Oracle::MayWait(const std::string& call) const {
  const Thread& thread = machine.kernel.Current();
  const auto hand = hands.find(thread.number);
  const bool receivesForPort = hand != hands.end() && hand->second.port != nullptr;
  const bool prints = call.starts_with("open(/var/log/") || IsForPeople(call);
  const bool carriesOut = thread.number != 1 && !call.starts_with("recv(");
  const bool forwards =
      receivesForPort && (call.starts_with("send(") || call.starts_with("close("));
  const int allowed = (prints ? 1 : 0) + ((receivesForPort ? forwards : carriesOut) ? 1 : 0);
  Expect(thread.locks <= allowed,
         thread.name + " holds " + std::to_string(thread.locks) + " locks in " + call);
}

}  // namespace simulation
