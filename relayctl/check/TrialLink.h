// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "check/Disturbance.h"
#include "link/PeerSocket.h"
#include "relay/Client.h"
#include "relay/Packet.h"

class Loop;

// The service's end of the link in a trial: it takes one relay service after the other, and sends
// packets as the disturbance wants. After an end it lets the next one in soon, so that trials are
// quick. Nothing blocks.
class TrialLink {
 public:
  // `port`: 0 for any free one. `wake` is called when something has happened, and calls Work.
  // Throws relay::Error when the port cannot be had.
  TrialLink(Loop& ownLoop, uint16_t port, const Disturbance& disturbance,
            std::function<void()> wakeOwner);
  ~TrialLink();
  TrialLink(const TrialLink&) = delete;
  TrialLink& operator=(const TrialLink&) = delete;

  uint16_t Port() const;
  bool IsUp() const { return isUp; }

  // Does what is due: first takes what has come, and then sends.
  void Work();
  std::optional<relay::Clock::time_point> Due() const;

  // Whether all has gone out: until then the service carries out no command.
  bool IsClear() const;

  // A measure of what has not: it is another one when the program has taken something.
  size_t Left() const;

  // The next whole packet, also of one that has left meanwhile; nothing while it is not clear.
  // Throws kNonsense.
  std::optional<std::string> Next();

  // How many bytes of commands wait for it.
  size_t Waiting() const { return cutter.Rest().size(); }

  // False when nobody will get it.
  bool Send(const std::string& packet);

  // What does not count as a packet of the service.
  void Insert(const std::string& bytes, relay::Clock::duration pause = {});

  void End(Disturbance::Ending ending);

  // What comes from now on wakes nobody.
  void Ignore();

  size_t Links() const { return links; }
  size_t Tries() const { return tries; }          // links and those that were reset at once
  size_t Leaves() const { return leaves; }        // links that the program ended
  size_t Disturbed() const { return disturbed; }  // how often the disturbance has happened
  const std::vector<std::string>& Sent() const { return sent; }
  int Peer() const { return socket.Peer(); }
  bool IsForeign() const { return isForeign; }  // a peer had another address than 127.0.0.1

 private:
  struct Segment {
    std::string bytes;
    relay::Clock::duration pause;  // behind the one before
    std::optional<Disturbance::Ending> ending;
    bool isByItself = false;  // is to be read without the one before
  };

  void Accept();
  void Pump();
  bool AwaitsReader();
  bool HasUnread() const;
  void Receive();
  void Put(const std::string& bytes, relay::Clock::duration pause = {},
           std::optional<Disturbance::Ending> ending = {});
  void PutWhole(const std::string& packet, relay::Clock::duration pause);
  bool HasStranger(size_t index) const;
  void PutBehindStranger(const std::string& packet);
  bool SendDisturbed(const std::string& packet, size_t index);
  void ReleaseHeld();

  Loop& loop;
  const Disturbance how;
  const std::function<void()> wake;
  PeerSocket socket;
  relay::PacketCutter cutter;
  int watchedPeer = -1;
  bool isUp = false;
  bool isBroken = false;  // in this link nothing goes out any more
  bool isForeign = false;
  relay::Clock::time_point acceptAt{};
  relay::Clock::time_point workedAt{};
  std::optional<relay::Clock::time_point> deafUntil;
  std::deque<Segment> segments;
  relay::Clock::time_point segmentAt{};  // when the first of them may go
  relay::Clock::time_point nextLook{};   // whether the one before has been read
  std::string held;                      // a packet that waits for the next one
  relay::Clock::time_point heldUntil{};
  std::vector<std::string> sent;  // packets of the first link
  size_t links = 0;
  size_t tries = 0;
  size_t leaves = 0;
  size_t disturbed = 0;
};
