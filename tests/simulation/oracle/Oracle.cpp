// SPDX-License-Identifier: MIT
#include "simulation/oracle/Oracle.h"

#include <algorithm>
#include <utility>

#include "simulation/Machine.h"

namespace simulation {

Oracle::Oracle(const Machine& wanted) : machine(wanted), stop(wanted.kernel) {}

void Oracle::Expect(bool holds, const std::string& otherwise) const {
  if (!holds) {
    machine.kernel.Defect(otherwise);
  }
}

LinkModel* Oracle::LinkOf(const Connection& connection) {
  for (const auto& link : links) {
    if (link->Is(connection)) {
      return link.get();
    }
  }
  machine.kernel.Defect("a link that was not accepted");
}

LinkModel* Oracle::CommandingLink() {
  for (const auto& link : links) {
    if (link->receiver == machine.kernel.Current().number) {
      return link.get();
    }
  }
  return nullptr;
}

Oracle::Hand& Oracle::Mine() { return hands[machine.kernel.Current().number]; }

void Oracle::Accepts(const std::shared_ptr<Connection>& connection) {
  if (connection->peerAddress != htonl(INADDR_LOOPBACK)) {
    return stop.MayFail();
  }
  Expect(links.empty() || links.back()->IsOver(), "a link is accepted beside another one");
  ForgetEnded();
  links.push_back(std::make_unique<LinkModel>(machine, connection));
  stop.Accepts();
}

// What no thread can tell of any more: a run may last for a year.
void Oracle::ForgetEnded() {
  std::erase_if(hands,
                [this](const auto& hand) { return machine.kernel.Find(hand.first) == nullptr; });
  std::erase_if(links, [this](const auto& link) {
    return machine.kernel.Find(link->receiver) == nullptr &&
           std::none_of(hands.begin(), hands.end(), [&link](const auto& hand) {
             return hand.second.port != nullptr && hand.second.port->link == link.get();
           });
  });
}

void Oracle::AsksForMore(const Connection& connection) { LinkOf(connection)->AsksForMore(); }

void Oracle::Takes(const Connection& connection, std::string_view bytes) {
  LinkOf(connection)->Takes(bytes);
}

void Oracle::SeesTheEnd(const Connection& connection) { LinkOf(connection)->Ends(); }

// Of a name that begins with a zero byte nothing is left in its answer; no client takes that.
relay::ParsedPacket Oracle::Parsed(const LinkModel& link, std::string_view packet) {
  relay::ParsedPacket parsed = relay::ParsePacket(packet, relay::Direction::kFromService);
  const bool hasNoName = link.current && link.current->Packet().port == relay::Port{};
  constexpr std::string_view kNoName("\2\0\0\0", 4);
  if (hasNoName && packet.size() == 8 && packet.substr(3, kNoName.size()) == kNoName) {
    parsed.problem.clear();
    parsed.packet.number = static_cast<uint8_t>(packet.back());
  }
  return parsed;
}

void Oracle::Sends(const Connection& connection, std::string_view bytes, bool isWhole) {
  LinkModel& link = *LinkOf(connection);
  relay::PacketCutter& mine = link.sent[machine.kernel.Current().number];
  mine.Add(bytes);
  while (const auto whole = mine.Next()) {
    const relay::ParsedPacket parsed = Parsed(link, *whole);
    Expect(parsed.problem.empty(), "a packet is sent that has " + parsed.problem);
    if (parsed.packet.command == kCommandData) {
      Notifies(link, parsed.packet);
    } else {
      link.Answers(parsed.packet);
      Expect(Mine().opened.empty(), "answered before the console tells of the open");
    }
  }
  Expect(!isWhole || mine.Rest().empty(), "a packet is sent in pieces");
}

// What a thread has read it sends, under its port's name, to the link that has opened the port.
void Oracle::Notifies(const LinkModel& link, const relay::Packet& packet) {
  Hand& mine = Mine();
  Expect(mine.port != nullptr, "a notification by who receives for no port");
  Expect(mine.port->link == &link, "received data of an earlier link");
  Expect(mine.port->isAnswered, "data before the answer to the open");
  Expect(packet.port.name == mine.port->name,
         "data of " + mine.port->name + " as " + packet.port.name);
  Expect(packet.blocks.size() == 1 && packet.blocks[0].type == kReceivedDataBlock,
         "a notification that is not one block of type 2");
  Expect(mine.isShown || machine.losesErrors, "data that the console does not show");
  Expect(!packet.Data().empty() && mine.unsent.starts_with(packet.Data()),
         "other data than were received");
  mine.unsent.erase(0, packet.Data().size());
}

void Oracle::Configures(const std::string& text) {
  if (LinkModel* const link = CommandingLink(); link != nullptr && link->current) {
    Command& command = *link->current;
    const std::string section = "[" + command.Packet().port.name + "]\n";
    command.isConfigured = text.find(section) != std::string::npos;
  }
}

void Oracle::Searches(const std::map<int, std::string>& places) {
  LinkModel* const link = CommandingLink();
  if (link == nullptr || !link->current) {
    return;
  }
  link->current->node.clear();
  const relay::Port& port = link->current->Packet().port;
  if (port.IsNumbered() && !places.contains(port.productId - 0x6001)) {
    stop.MayAbort();
  }
  for (const auto& [index, node] : places) {
    if (link->current->Packet().port.name == "#USBSerialPort" + std::to_string(index)) {
      link->current->node = node;
    }
  }
}

void Oracle::Logs(std::string_view text) {
  const std::string message = MessageOf(text);
  Expect(!message.empty(), "no line of the log: " + std::string(text));
  const bool isServing = !links.empty() && links.back()->receiver != 0 && !links.back()->IsOver();
  Expect(message != "request stop." || !stop.HasSaidGoodbye(), "a stop is handled behind the end");
  stop.Logs(message, isServing, links.empty() ? 0 : links.back()->ports.size());
  if (message == "request stop." && !links.empty()) {
    links.back()->Ends();
  }
  LinkModel* const link = CommandingLink();
  if (link == nullptr) {
    return;
  }
  link->Logs(message);
  if (message == "Serial Device Send Error.") {
    Expect(link->current && link->current->Is(kCommandData) && link->current->port != nullptr &&
               WasAway(link->current->port, link->current->began),
           "a write is given up, and the device is there");
    link->current->hasGivenUp = true;
  }
}

void Oracle::Prints(bool isError, std::string_view text) {
  if (isError && machine.losesErrors) {
    return;
  }
  for (const std::string& line : (isError ? errors : output).Add(text)) {
    PrintsLine(line);
  }
}

void Oracle::PrintsLine(const std::string& line) {
  Hand& mine = Mine();
  if (line.starts_with("OPEN[")) {
    Expect(line == "OPEN[" + std::exchange(mine.opened, {}) + "]", "the console tells: " + line);
  } else if (line.ends_with(")port close")) {
    const auto use = std::exchange(mine.use, nullptr);
    Expect(use != nullptr && use->HasFailed() && line == "(" + use->line->node + ")port close",
           "the console tells: " + line);
  } else if (line.starts_with("Received(")) {
    Expect(line == DumpOf(mine.unsent), "the console shows other data: " + line);
    mine.isShown = true;
  } else {
    Expect(IsKnownOnConsole(line), "the console tells: " + line);
    stop.Prints(line);
  }
}

std::string Oracle::Judge(const std::string& ending) const {
  const bool isDefect = ending.starts_with("defect");
  const std::string problem = isDefect || machine.losesErrors ? "" : stop.Judge(ending);
  return problem.empty() ? ending : "defect: " + problem;
}

}  // namespace simulation
