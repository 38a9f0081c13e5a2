// SPDX-License-Identifier: MIT
// The multiplexer between a service and peers that do what a string of bytes says. The oracle: each
// peer gets the answers that it would get from a service of its own, in their order; a line gets
// what these services would write to it, in the order of its coming; and what a line receives goes
// to whoever has its port open.
#pragma once

#include <algorithm>
#include <array>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "relay/Packet.h"
#include "serve/PlayedService.h"
#include "share/Multiplexer.h"

class SharedLink {
 public:
  // `demand`: called with what must hold and whether it does. Does not return when it does not.
  using Demand = std::function<void(bool holds, const char* rule)>;

  explicit SharedLink(Demand ownDemand) : demand(std::move(ownDemand)) { PlugAll(service); }

  // Each byte is something that happens; `isHonest`: the service says nothing that it never would.
  void Play(std::string_view text, bool isHonest) {
    for (size_t i = 0; i < text.size(); ++i) {
      const auto what = static_cast<uint8_t>(text[i]);
      if (what % 8 == 7 && !isHonest) {
        Lie(text.substr(i));
      } else {
        Happen(what);
      }
    }
    if (isHonest) {
      ExpectAnOrderlyEnd();
    }
  }

 private:
  struct Party {
    bool watches = false;
    PlayedService alone;
    std::deque<std::string> answers;  // that are to come
    std::set<std::string> open;       // by the answers that came
  };

  static constexpr std::array<const char*, 3> kPorts = {"#PhysicalPort0", "#USBSerialPort0", "#No"};

  static void PlugAll(PlayedService& played) {
    for (const std::string& port : PlayedService::Ports()) {
      played.Plug(port, "");
    }
  }

  void Happen(uint8_t what) {
    const unsigned party = what / 8 % 4;
    const std::string port = kPorts[what / 32 % 3];
    switch (what % 8) {
      case 0:
        ServiceTakes();
        break;
      case 1:
        ServiceIsHeard();
        break;
      case 2:
        LineReceives(port);
        break;
      case 3:
        what / 32 < 6 ? ComeOrGo(party) : Send(party, std::string("\0\7\3\2\0\1X", 7));
        break;
      case 4:
        Send(party, relay::CloseCommand(relay::Port{port}));
        break;
      case 5:
        Send(party, relay::DataCommand(relay::Port{port}, {{1, std::to_string(++count) + " "}}));
        break;
      default:
        Send(party, what / 32 < 6 ? relay::OpenCommand(relay::Port{port})
                                  : relay::OpenCommand(relay::Port{"", 0x0403, 0x6001}, 5));
    }
  }

  // Number 0 is one that watches.
  void ComeOrGo(unsigned slot) {
    Multiplexer::Peer& number = slots[slot];
    if (number != 0) {
      multiplexer.Leave(number);
      parties.erase(number);
      number = 0;
      return;
    }
    number = ++lastNumber;
    Party& party = parties[number];
    party.watches = slot == 0;
    PlugAll(party.alone);
    multiplexer.Join(number,
                     slot == 0 ? Multiplexer::Role::kWatches : Multiplexer::Role::kTakesPart);
  }

  void Send(unsigned slot, const std::string& packet) {
    const Multiplexer::Peer number = slots[slot];
    if (number == 0 || !multiplexer.MayTake(number)) {
      return;
    }
    Party& party = parties.at(number);
    const PlayedService::Effect effect = party.alone.Take(packet);
    if (!effect.reply.empty()) {
      party.answers.push_back(effect.reply);
    }
    if (effect.kind == PlayedService::Effect::Kind::kData && !party.watches) {
      written[effect.port] += effect.data;
    }
    demand(multiplexer.Take(number, packet), "the peer may stay");
  }

  void ServiceTakes() {
    if (toService.empty()) {
      return;
    }
    const PlayedService::Effect effect = service.Take(toService.front());
    toService.pop_front();
    if (!effect.reply.empty()) {
      fromService.push_back(effect.reply);
    }
    if (effect.kind == PlayedService::Effect::Kind::kData) {
      lines[effect.port] += effect.data;
    }
  }

  void LineReceives(const std::string& port) {
    if (service.IsOpen(port)) {
      fromService.push_back(PlayedService::Notification(port, std::to_string(++count)));
    }
  }

  void ServiceIsHeard() {
    if (fromService.empty()) {
      return;
    }
    const std::string packet = fromService.front();
    fromService.pop_front();
    const relay::Packet read = relay::ParsePacket(packet, relay::Direction::kFromService).packet;
    std::set<Multiplexer::Peer> meant;
    if (read.command == kCommandData) {
      for (const auto& [number, party] : parties) {
        if (party.open.count(read.port.name) != 0) {
          meant.insert(number);
        }
      }
    }
    receivers.clear();
    multiplexer.Give(packet);
    demand(isLying || receivers == meant,
           "data go to whoever has the port open, and to nobody else");
  }

  void ToPeer(Multiplexer::Peer number, std::string_view packet) {
    const auto found = parties.find(number);
    demand(found != parties.end(), "nothing goes to a peer that has left");
    Party& party = found->second;
    const relay::Packet read = relay::ParsePacket(packet, relay::Direction::kFromService).packet;
    if (read.command == kCommandData) {
      demand(receivers.insert(number).second, "data come once");
      return;
    }
    if (!isLying) {
      demand(!party.answers.empty() && party.answers.front() == packet,
             "an answer is the one that the peer would get alone");
      party.answers.pop_front();
    }
    if (read.number == kStatusDone) {
      read.command == kCommandOpen ? (void)party.open.insert(read.port.name)
                                   : (void)party.open.erase(read.port.name);
    }
  }

  // Any packet that a stream can be cut into.
  void Lie(std::string_view rest) {
    isLying = true;
    std::string packet(rest.substr(0, 40));
    packet.resize(std::max<size_t>(packet.size(), 3));
    packet[0] = '\0';
    packet[1] = static_cast<char>(packet.size());
    receivers.clear();
    multiplexer.Give(packet);
  }

  // All are answered, all leave, and then nothing is open any more.
  void ExpectAnOrderlyEnd() {
    Settle();
    for (auto& [number, party] : parties) {
      demand(party.answers.empty() && !multiplexer.IsAsking(number), "all are answered");
    }
    demand(lines == written, "a line gets what the peers write to it, in its order");
    for (unsigned slot = 0; slot < slots.size(); ++slot) {
      if (slots[slot] != 0) {
        ComeOrGo(slot);
      }
    }
    Settle();
    demand(!multiplexer.HasQuestions(), "nothing is left to be answered");
    for (const char* const port : kPorts) {
      demand(!service.IsOpen(port), "a port is closed when the last one lets go");
    }
  }

  void Settle() {
    while (!toService.empty() || !fromService.empty()) {
      ServiceTakes();
      ServiceIsHeard();
    }
  }

  const Demand demand;
  PlayedService service;
  std::deque<std::string> toService;
  std::deque<std::string> fromService;
  std::map<std::string, std::string> lines;    // what the service has written to them
  std::map<std::string, std::string> written;  // what the peers' own services would have
  std::map<Multiplexer::Peer, Party> parties;
  std::array<Multiplexer::Peer, 4> slots{};  // 0: nobody
  std::set<Multiplexer::Peer> receivers;     // of the notification that is under way
  Multiplexer::Peer lastNumber = 0;
  unsigned count = 0;
  bool isLying = false;
  Multiplexer multiplexer{
      {[this](std::string_view packet) { toService.emplace_back(packet); },
       [this](Multiplexer::Peer number, std::string_view packet) { ToPeer(number, packet); }}};
};
