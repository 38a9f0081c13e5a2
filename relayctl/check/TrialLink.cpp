// SPDX-License-Identifier: MIT
#include "check/TrialLink.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "link/Loop.h"
#include "machine/ProcessTable.h"

namespace {

using relay::Clock;
using relay::Millis;

constexpr Millis kBetweenBytes{1};
constexpr Millis kAtACut{10};
constexpr Millis kLate{100};
constexpr Millis kBehindAStranger{50};

// A program on a busy machine reads late, and then what has come since with it.
constexpr Millis kTimeToRead{1000};
constexpr Millis kUntilNextLook{5};

constexpr Millis kHeldAtMost{60};
constexpr Millis kUntilNextLink{30};
constexpr Millis kDeafTime{1000};

// What a program sends ahead waits in its own socket, as it does with the service.
constexpr size_t kMostReceivedAhead = 65536;

// Small, so that it soon shows when a program does not read.
constexpr int kSendBuffer = 16384;

constexpr const char* kTheAddress = "127.0.0.1";

}  // namespace

TrialLink::TrialLink(Loop& ownLoop, uint16_t port, const Disturbance& disturbance,
                     std::function<void()> wakeOwner)
    : loop(ownLoop), how(disturbance), wake(std::move(wakeOwner)), socket(port) {
  loop.Watch(
      socket.Listening(),
      [this] { return isUp || Clock::now() < acceptAt ? short{0} : short{POLLIN}; },
      [this](short) { wake(); });
}

TrialLink::~TrialLink() { Ignore(); }

void TrialLink::Ignore() {
  loop.Forget(socket.Listening());
  loop.Forget(watchedPeer);
}

uint16_t TrialLink::Port() const {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  (void)getsockname(socket.Listening(), reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

void TrialLink::Work() {
  workedAt = Clock::now();
  if (!isUp && Clock::now() >= acceptAt) {
    Accept();
  }
  if (!held.empty() && Clock::now() >= heldUntil) {
    ReleaseHeld();
  }
  Receive();
  Pump();
}

std::optional<Clock::time_point> TrialLink::Due() const {
  std::optional<Clock::time_point> due;
  const auto add = [&due](Clock::time_point when) { due = due ? std::min(*due, when) : when; };
  if (!isUp && acceptAt > workedAt) {
    add(acceptAt);
  }
  if (isUp && !held.empty()) {
    add(heldUntil);
  }
  if (isUp && !segments.empty() && socket.Unsent() == 0) {
    add(std::max(segmentAt, nextLook));
  }
  return due;
}

// The one before may still be there, half closed: it goes when the program has turned to a new one.
void TrialLink::Accept() {
  pollfd ready{socket.Listening(), POLLIN, 0};
  if (poll(&ready, 1, 0) != 1) {
    return;
  }
  socket.Drop();
  if (!socket.Accept()) {
    return;
  }
  ++tries;
  if (how.isDeaf && !deafUntil) {
    deafUntil = Clock::now() + kDeafTime;
  }
  if (deafUntil && Clock::now() < *deafUntil) {
    ++disturbed;
    socket.Reset();
    return;
  }
  isForeign = isForeign || socket.PeerAddress() != kTheAddress;
  (void)setsockopt(socket.Peer(), SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
  ++links;
  isUp = true;
  isBroken = false;
  cutter.Clear();
  watchedPeer = socket.Peer();
  loop.Watch(
      watchedPeer,
      [this] {
        return static_cast<short>((cutter.Rest().size() < kMostReceivedAhead ? POLLIN : 0) |
                                  (socket.Unsent() > 0 ? POLLOUT : 0));
      },
      [this](short) { wake(); });
}

void TrialLink::Receive() {
  while (isUp && cutter.Rest().size() < kMostReceivedAhead) {
    std::string bytes;
    const bool isThere = socket.Receive(bytes);
    cutter.Add(bytes);
    if (!isThere) {
      ++leaves;
      End(Disturbance::Ending::kOrderly);
    }
    if (bytes.empty()) {
      return;
    }
  }
}

bool TrialLink::IsClear() const { return !isUp || (segments.empty() && socket.Unsent() == 0); }

size_t TrialLink::Left() const { return segments.size() * kMaxPacketSize + socket.Unsent(); }

std::optional<std::string> TrialLink::Next() { return IsClear() ? cutter.Next() : std::nullopt; }

void TrialLink::Put(const std::string& bytes, Clock::duration pause,
                    std::optional<Disturbance::Ending> ending) {
  if (segments.empty()) {
    segmentAt = Clock::now() + pause;
  }
  segments.push_back({bytes, pause, ending});
}

void TrialLink::PutWhole(const std::string& packet, Clock::duration pause) {
  if (!how.isBytewise) {
    Put(packet, pause);
    return;
  }
  for (const char byte : packet) {
    Put(std::string(1, byte), std::exchange(pause, kBetweenBytes));
  }
  ++disturbed;
}

void TrialLink::Insert(const std::string& bytes, Clock::duration pause) {
  if (isUp && !isBroken) {
    PutWhole(bytes, pause);
    Pump();
  }
}

void TrialLink::ReleaseHeld() { PutWhole(std::exchange(held, {}), {}); }

bool TrialLink::HasStranger(size_t index) const {
  return !how.stranger.empty() && how.flood == 0 && !how.isTimed &&
         how.before.value_or(index) == index;
}

void TrialLink::PutBehindStranger(const std::string& packet) {
  ++disturbed;
  if (how.isTogether) {
    PutWhole(how.stranger + packet, {});
  } else {
    PutWhole(how.stranger, {});
    const size_t next = segments.size();
    PutWhole(packet, kBehindAStranger);
    segments[next].isByItself = true;
  }
}

// False when the packet is none that the disturbance is about.
bool TrialLink::SendDisturbed(const std::string& packet, size_t index) {
  if (how.cut && how.cut->packet == index) {
    Put(packet.substr(0, how.cut->behind));
    Put(packet.substr(how.cut->behind), kAtACut);
  } else if (how.broken && how.broken->packet == index) {
    Put(packet.substr(0, how.broken->behind), {}, how.ending);
    isBroken = true;
  } else if (how.late == index) {
    Put(packet, kLate);
  } else if (how.merged == index) {
    held = packet;
    heldUntil = Clock::now() + kHeldAtMost;
    return true;  // it has not gone together with another one yet
  } else {
    return false;
  }
  ++disturbed;
  return true;
}

bool TrialLink::Send(const std::string& packet) {
  if (!isUp || isBroken) {
    return false;
  }
  const bool isFirstLink = links == 1;
  const size_t index = sent.size();
  if (isFirstLink) {
    sent.push_back(packet);
  }
  if (!held.empty()) {
    ++disturbed;
    Put(std::exchange(held, {}) + packet);
  } else if (isFirstLink && HasStranger(index)) {
    PutBehindStranger(packet);
  } else if (!isFirstLink || !SendDisturbed(packet, index)) {
    PutWhole(packet, {});
  }
  Pump();
  return !isBroken;
}

// What cannot be seen counts as read.
bool TrialLink::HasUnread() const {
  const std::vector<TcpSocket> sockets = ProcessTable().TcpSockets();
  return std::any_of(sockets.begin(), sockets.end(), [port = Port()](const TcpSocket& other) {
    return other.remotePort == port && other.unread > 0;
  });
}

bool TrialLink::AwaitsReader() {
  const bool isAwaited =
      segments.front().isByItself && Clock::now() < segmentAt + kTimeToRead && HasUnread();
  if (isAwaited) {
    nextLook = Clock::now() + kUntilNextLook;
  }
  return isAwaited;
}

void TrialLink::Pump() {
  if (!isUp) {
    return;
  }
  socket.Flush();
  while (!segments.empty() && socket.Unsent() == 0 && Clock::now() >= segmentAt &&
         !AwaitsReader()) {
    const Segment segment = std::move(segments.front());
    segments.pop_front();
    if (!segment.bytes.empty()) {
      socket.Send(segment.bytes);
    }
    if (segment.ending) {
      End(*segment.ending);
      return;
    }
    if (!segments.empty()) {
      segmentAt = Clock::now() + segments.front().pause;
    }
  }
}

// In order: what is under way still arrives.
void TrialLink::End(Disturbance::Ending ending) {
  loop.Forget(std::exchange(watchedPeer, -1));
  if (isUp && socket.Peer() != -1) {
    ending == Disturbance::Ending::kReset ? socket.Reset() : socket.EndSending();
  }
  isUp = false;
  acceptAt = Clock::now() + kUntilNextLink;
  segments.clear();
  held.clear();
}
