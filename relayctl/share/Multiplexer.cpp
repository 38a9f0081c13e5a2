// SPDX-License-Identifier: MIT
#include "share/Multiplexer.h"

#include <utility>
#include <vector>

#include "protocol/CommandPacket.h"
#include "protocol/WireFormat.h"
#include "relay/Packet.h"

namespace {

constexpr size_t kStatusSize = 2;

// The service's own reading, so that what it will answer is known for certain.
CommandPacket Read(std::string_view packet) {
  return {reinterpret_cast<const uint8_t*>(packet.data()), static_cast<uint32_t>(packet.size())};
}

uint8_t CommandOf(std::string_view packet) { return static_cast<uint8_t>(packet[kLengthSize]); }

uint16_t StatusOf(std::string_view reply) {
  return FromBytes(static_cast<uint8_t>(reply[reply.size() - 2]),
                   static_cast<uint8_t>(reply[reply.size() - 1]));
}

std::string WithStatus(std::string_view reply, uint16_t status) {
  std::string result(reply.substr(0, reply.size() - kStatusSize));
  result += static_cast<char>(HighByte(status));
  result += static_cast<char>(LowByte(status));
  return result;
}

std::string ReplyToClose(const std::string& port, uint16_t status) {
  return relay::BuildPacket({kCommandClose, relay::Port{port}, status, {}});
}

}  // namespace

void Multiplexer::Join(Peer peer, Role role) {
  Guest& guest = guests[peer];
  if (role == Role::kWatches) {
    guest.view.emplace();
    for (const std::string& port : PlayedService::Ports()) {
      guest.view->Plug(port, "");
    }
  }
}

void Multiplexer::Leave(Peer peer) {
  guests.erase(peer);
  std::vector<std::string> names;
  for (const auto& [name, port] : ports) {
    names.push_back(name);
  }
  for (const std::string& name : names) {
    Settle(name);
  }
}

bool Multiplexer::MayTake(Peer peer) const { return !guests.at(peer).waits; }

bool Multiplexer::IsAsking(Peer peer) const {
  const Guest& guest = guests.at(peer);
  return guest.waits || guest.asked > 0;
}

void Multiplexer::Clear() {
  guests.clear();
  ports.clear();
  questions.clear();
}

bool Multiplexer::Take(Peer peer, const std::string& packet) {
  if (guests.at(peer).view) {
    return Look(peer, packet);
  }
  if (packet.size() < kLengthSize) {
    return true;  // refused; passed on, it would be the beginning of what follows
  }
  const CommandPacket command = Read(packet);
  if (!command.parsedOk) {
    carrier.toService(packet);  // which writes to its log that it refuses it
  } else if (command.portForm == kNumberedPort) {
    if (command.command == kCommandData) {
      carrier.toService(packet);
    } else {
      PassOn({peer, command.command, std::nullopt, false}, packet);
    }
  } else if (command.command == kCommandData) {
    TakeData(peer, command.portName, packet);
  } else {
    AskAbout(command.portName, {peer, command.command, packet});
  }
  return true;
}

bool Multiplexer::Look(Peer peer, const std::string& packet) {
  const PlayedService::Effect effect = guests.at(peer).view->Take(packet);
  if (!effect.reply.empty()) {
    Tell(peer, effect.reply);
  }
  return effect.kind != PlayedService::Effect::Kind::kDies;
}

// Alone, a peer that has not opened the port would write to nobody.
void Multiplexer::TakeData(Peer peer, const std::string& name, const std::string& packet) {
  const auto found = ports.find(name);
  if (found == ports.end()) {
    return;
  }
  const SharedPort& port = found->second;
  const bool isAsking = port.asked > 0 && port.asker == peer;
  if (isAsking ? port.willBeHeld : port.holders.count(peer) != 0) {
    carrier.toService(packet);
  }
}

void Multiplexer::AskAbout(const std::string& name, Request request) {
  SharedPort& port = ports[name];
  const bool isOthers = port.asked > 0 && port.asker != request.peer;
  if (isOthers || !port.waiting.empty()) {
    guests.at(request.peer).waits = true;
    port.waiting.push_back(std::move(request));
  } else {
    Ask(name, port, request);
  }
}

void Multiplexer::Ask(const std::string& name, SharedPort& port, const Request& request) {
  const size_t others = port.holders.size() - port.holders.count(request.peer);
  const bool isFence = request.command == kCommandClose && others > 0;
  port.asker = request.peer;
  port.willBeHeld = request.command == kCommandOpen;
  ++port.asked;
  PassOn({request.peer, request.command, name, isFence},
         isFence ? relay::OpenCommand(relay::Port{name}, relay::kFenceParameter) : request.packet);
}

void Multiplexer::PassOn(Question question, std::string_view packet) {
  if (IsThere(question.asker)) {
    ++guests.at(question.asker).asked;
  }
  questions.push_back(std::move(question));
  carrier.toService(packet);
}

void Multiplexer::Give(std::string_view packet) {
  if (CommandOf(packet) == kCommandData) {
    Spread(packet);
    return;
  }
  if (questions.empty() || packet.size() < kLengthSize + 1 + kStatusSize) {
    return;  // an answer to nobody
  }
  const Question question = std::move(questions.front());
  questions.pop_front();
  Answer(question, packet);
  if (question.port) {
    Settle(*question.port);
  }
}

void Multiplexer::Answer(const Question& question, std::string_view reply) {
  if (IsThere(question.asker)) {
    --guests.at(question.asker).asked;
  }
  if (!question.port) {
    Tell(question.asker, reply);
    return;
  }
  SharedPort& port = ports.at(*question.port);
  --port.asked;
  const uint16_t status = StatusFor(question, port, StatusOf(reply));
  Tell(question.asker,
       question.isFence ? ReplyToClose(*question.port, status) : WithStatus(reply, status));
}

uint16_t Multiplexer::StatusFor(const Question& question, SharedPort& port, uint16_t status) {
  if (question.isFence) {
    return port.holders.erase(question.asker) == 1 ? kStatusDone : kStatusNoPort;
  }
  if (question.command == kCommandClose) {
    if (status == kStatusDone || status == kStatusNoPort) {
      port.holders.erase(question.asker);
    }
    return status;
  }
  const bool isOpen = status == kStatusDone || status == kStatusUnavailable;
  return isOpen && port.holders.insert(question.asker).second ? uint16_t{kStatusDone} : status;
}

// Behind an answer, and when a peer has left.
void Multiplexer::Settle(const std::string& name) {
  SharedPort& port = ports.at(name);
  CloseAbandoned(name, port);
  while (!port.waiting.empty() && (port.asked == 0 || port.asker == port.waiting.front().peer)) {
    const Request next = std::move(port.waiting.front());
    port.waiting.pop_front();
    if (IsThere(next.peer)) {
      guests.at(next.peer).waits = false;
      Ask(name, port, next);
    }
  }
  if (port.asked == 0 && port.holders.empty()) {
    ports.erase(name);
  }
}

// When all who had it open are gone. As long as answers to them are to come it may still become
// open.
void Multiplexer::CloseAbandoned(const std::string& name, SharedPort& port) {
  if (port.asked > 0) {
    return;
  }
  const size_t gone = std::erase_if(port.holders, [this](Peer holder) { return !IsThere(holder); });
  if (gone > 0 && port.holders.empty()) {
    Ask(name, port, {kNobody, kCommandClose, relay::CloseCommand(relay::Port{name})});
  }
}

// By ids nobody has opened anything, so that nobody can be left out.
void Multiplexer::Spread(std::string_view packet) {
  const relay::ParsedPacket parsed = relay::ParsePacket(packet, relay::Direction::kFromService);
  const bool isForAll = !parsed.problem.empty() || parsed.packet.port.IsNumbered();
  const std::string& name = parsed.packet.port.name;
  const auto port = ports.find(name);
  for (const auto& [peer, guest] : guests) {
    const bool isOpen = guest.view ? guest.view->IsOpen(name)
                                   : port != ports.end() && port->second.holders.count(peer) != 0;
    if (isForAll || isOpen) {
      Tell(peer, packet);
    }
  }
}

void Multiplexer::Tell(Peer peer, std::string_view packet) {
  if (IsThere(peer)) {
    carrier.toPeer(peer, packet);
  }
}
