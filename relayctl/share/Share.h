// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "link/CommandStream.h"
#include "link/Connection.h"
#include "link/Listener.h"
#include "relay/Client.h"
#include "share/Multiplexer.h"

class Loop;

// Holds the service's one link and offers it again to any number of peers, as long as it stands:
// when it ends they all see its end, and nobody listens until there is the next one.
//
// Nobody waits for a peer that does not read: behind kMostUnsent bytes it is dropped. A peer waits
// when the service takes no more, and for the answers to another one's opens and closes of the same
// port.
class Share {
 public:
  struct Options {
    relay::ClientOptions link;
    uint16_t peers = 0;     // the TCP port that they connect to
    uint16_t watchers = 0;  // and that of those that may only look; 0: none
  };

  // Of each peer, beyond what the system keeps.
  static constexpr size_t kMostUnsent = size_t{1} << 20;

  // `loop` outlives it. Throws relay::Error, as the loop does later, when a TCP port cannot be had.
  Share(Loop& ownLoop, const Options& shareOptions);
  ~Share();
  Share(const Share&) = delete;
  Share& operator=(const Share&) = delete;

 private:
  using Role = Multiplexer::Role;
  struct Peer {
    Peer(Connection ownConnection, Role ownRole)
        : connection(std::move(ownConnection)), role(ownRole) {}

    Connection connection;
    const Role role;
    CommandStream input;
    bool hasLeft = false;
    bool isTooSlow = false;
    std::optional<relay::Clock::time_point> endsAt;  // nothing that it sends counts any more
    bool isTold = false;                             // of the end
  };

  void OnLink();
  void OnLinkEnd(const relay::Error& reason);
  void OnPacket(std::string_view packet);
  void ToService(std::string_view packet);
  void ToPeer(Multiplexer::Peer number, std::string_view packet);
  std::unique_ptr<Listener> Listen(uint16_t port, Role role);
  void Accept(const Listener& listener, Role role);
  bool MayReceive(Multiplexer::Peer number, const Peer& peer) const;
  short Wanted(Multiplexer::Peer number) const;
  std::optional<Connection> TakeNext(const Listener& listener);
  void OnReady(Multiplexer::Peer number, short ready);
  void Work();
  bool TakeFrom(Multiplexer::Peer number, Peer& peer);
  void BeginEnd(Peer& peer);
  static bool IsOver(Peer& peer);
  void Remove(Multiplexer::Peer number);
  std::optional<relay::Clock::time_point> NextEnd() const;
  void TellOfSilence();

  Loop& loop;
  const Options options;
  relay::Client client;
  Multiplexer multiplexer;
  std::map<Multiplexer::Peer, Peer> peers;
  Multiplexer::Peer lastNumber = 0;
  std::unique_ptr<Listener> peerListener;
  std::unique_ptr<Listener> watcherListener;
  std::optional<relay::Clock::time_point> acceptAt;  // nobody is taken before
  bool isShort = false;                              // of descriptors, and has said so
  bool isWaiting = false;                            // has said so
  bool isAnswered = false;                           // on this link
  std::optional<relay::Clock::time_point> silentAt;  // unless something comes before
};
