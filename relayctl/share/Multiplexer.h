// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "serve/PlayedService.h"

// Several peers on the service's one link, each of which sees the service as if it were alone. No
// link, no clock: whoever has the links tells what has come, and carries what is told.
//
// A port that several have opened is open once, and closed when the last one lets go. Every command
// that is answered goes to the service, so that the answers keep their order and tell that what
// stood before them has been done: an open of a port that another one has open is answered "open
// already", which becomes "open" for whoever did not have it; and a close of a port that another
// one still has open goes out as such an open, too.
//
// Of each port only one peer's opens and closes are under way at a time. So what the others have is
// certain when theirs are passed on, and those that wait take turns in the order of their coming.
class Multiplexer {
 public:
  using Peer = unsigned;  // a number from 1 on, never given again

  enum class Role {
    kTakesPart,
    // Sees what the ports that it opens receive when another peer has them open too, and nothing
    // that it sends reaches the service: it is answered by a model in which each port has a device.
    kWatches,
  };

  // Neither may call the multiplexer.
  struct Carrier {
    std::function<void(std::string_view packet)> toService;
    std::function<void(Peer peer, std::string_view packet)> toPeer;
  };

  explicit Multiplexer(Carrier packetCarrier) : carrier(std::move(packetCarrier)) {}

  void Join(Peer peer, Role role);

  // Its ports are closed unless others have them.
  void Leave(Peer peer);

  // False: its last command waits behind another peer's, so no further one may be taken now.
  bool MayTake(Peer peer) const;

  // Has an answer to come.
  bool IsAsking(Peer peer) const;

  // A whole packet of the peer. False: as the service would end at it, the peer must go. Only of
  // one that watches; those of others end the service.
  bool Take(Peer peer, const std::string& packet);

  // A whole packet of the service.
  void Give(std::string_view packet);

  // So many answers are to come that none of the peers should ask on.
  bool IsBusy() const { return questions.size() >= kMostQuestions; }
  bool HasQuestions() const { return !questions.empty(); }

  // The link has ended, and all peers are gone.
  void Clear();

 private:
  static constexpr size_t kMostQuestions = 1024;
  static constexpr Peer kNobody = 0;

  struct Guest {
    std::optional<PlayedService> view;  // of one that watches
    bool waits = false;
    unsigned asked = 0;
  };
  struct Question {
    Peer asker = kNobody;
    uint8_t command = 0;
    std::optional<std::string> port;  // none: asked by ids
    bool isFence = false;             // an open went out instead of a close
  };
  struct Request {
    Peer peer = kNobody;
    uint8_t command = 0;
    std::string packet;
  };
  struct SharedPort {
    std::set<Peer> holders;   // whose open has been answered; some may be gone
    unsigned asked = 0;       // opens and closes under way, all of
    Peer asker = kNobody;     // this one
    bool willBeHeld = false;  // by that one, when they are answered, unless the service refuses
    std::deque<Request> waiting;
  };

  bool IsThere(Peer peer) const { return guests.count(peer) != 0; }
  bool Look(Peer peer, const std::string& packet);
  void TakeData(Peer peer, const std::string& name, const std::string& packet);
  void AskAbout(const std::string& name, Request request);
  void Ask(const std::string& name, SharedPort& port, const Request& request);
  void PassOn(Question question, std::string_view packet);
  void Answer(const Question& question, std::string_view reply);
  static uint16_t StatusFor(const Question& question, SharedPort& port, uint16_t status);
  void Spread(std::string_view packet);
  void Settle(const std::string& name);
  void CloseAbandoned(const std::string& name, SharedPort& port);
  void Tell(Peer peer, std::string_view packet);

  const Carrier carrier;
  std::map<Peer, Guest> guests;
  std::map<std::string, SharedPort> ports;
  std::deque<Question> questions;  // in the order in which the service answers them
};
