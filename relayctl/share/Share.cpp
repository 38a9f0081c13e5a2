// SPDX-License-Identifier: MIT
#include "share/Share.h"

#include <poll.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "link/Loop.h"
#include "link/Silence.h"
#include "show/Output.h"

namespace {

// Behind so much that the service has not taken, no more is received.
constexpr size_t kMostForService = 65536;

constexpr size_t kMostPeers = 100;
constexpr int kQueue = 16;

// When there are no descriptors for one more.
constexpr std::chrono::seconds kUntilNextTry{1};

// For a peer that has been told of the end to read what came before.
constexpr std::chrono::seconds kFarewell{2};

std::string Text(Multiplexer::Role role, Multiplexer::Peer number) {
  return (role == Multiplexer::Role::kWatches ? "watcher " : "peer ") + std::to_string(number);
}

}  // namespace

Share::Share(Loop& ownLoop, const Options& shareOptions)
    : loop(ownLoop),
      options(shareOptions),
      client(options.link),
      multiplexer(
          {[this](std::string_view packet) { ToService(packet); },
           [this](Multiplexer::Peer number, std::string_view packet) { ToPeer(number, packet); }}) {
  relay::Events events;
  events.connected = [this] { OnLink(); };
  events.disconnected = [this](const relay::Error& reason) { OnLinkEnd(reason); };
  events.packet = [this](relay::Direction, std::string_view packet) { OnPacket(packet); };
  client.SetEvents(std::move(events));
  loop.When([this] { return silentAt; }, [this] { TellOfSilence(); });
  loop.When([this] { return acceptAt; }, [this] { acceptAt.reset(); });
  loop.When([this] { return NextEnd(); }, [this] { Work(); });
  loop.Serve(client);
  client.Start();
}

Share::~Share() = default;

void Share::OnLink() {
  isWaiting = false;
  isAnswered = false;
  peerListener = Listen(options.peers, Role::kTakesPart);
  std::string text = "linked to 127.0.0.1:" + std::to_string(options.link.port) +
                     ", and listening for peers on 127.0.0.1:" + std::to_string(options.peers);
  if (options.watchers != 0) {
    watcherListener = Listen(options.watchers, Role::kWatches);
    text += ", for watchers on 127.0.0.1:" + std::to_string(options.watchers);
  }
  PrintNotice(text);
}

void Share::OnLinkEnd(const relay::Error& reason) {
  for (std::unique_ptr<Listener>* listener : {&peerListener, &watcherListener}) {
    if (*listener) {
      loop.Forget((*listener)->Descriptor());
      listener->reset();
    }
  }
  silentAt.reset();
  multiplexer.Clear();
  for (auto& [number, peer] : peers) {
    if (!peer.endsAt) {
      BeginEnd(peer);
    }
  }
  if (!std::exchange(isWaiting, true)) {
    PrintNotice(reason.what());
    PrintNotice("waiting for the service on 127.0.0.1:" + std::to_string(options.link.port));
  }
  Work();
}

void Share::OnPacket(std::string_view packet) {
  isAnswered = true;
  silentAt.reset();
  multiplexer.Give(packet);
  Work();
}

void Share::TellOfSilence() {
  silentAt.reset();
  PrintNotice(SilenceText(options.link.port));
}

void Share::ToService(std::string_view packet) {
  client.Send(packet);
  if (!isAnswered && !silentAt && multiplexer.HasQuestions()) {
    silentAt = relay::Clock::now() + kSilence;
  }
}

// Whoever is too slow goes when nobody is at the peers any more.
void Share::ToPeer(Multiplexer::Peer number, std::string_view packet) {
  Peer& peer = peers.at(number);
  if (!peer.isTooSlow) {
    peer.connection.Send(packet);
    peer.isTooSlow = peer.connection.Unsent() > kMostUnsent;
  }
}

std::unique_ptr<Listener> Share::Listen(uint16_t port, Role role) {
  auto listener = std::make_unique<Listener>(port, kQueue);
  loop.Watch(
      listener->Descriptor(),
      [this]() -> short { return peers.size() < kMostPeers && !acceptAt ? POLLIN : 0; },
      [this, &from = *listener, role](short) { Accept(from, role); });
  return listener;
}

// Those who are there do not suffer for one who comes.
std::optional<Connection> Share::TakeNext(const Listener& listener) {
  try {
    std::optional<Connection> connection = listener.Accept();
    isShort = false;
    return connection;
  } catch (const relay::Error& error) {
    if (!std::exchange(isShort, true)) {
      PrintNotice(std::string(error.what()) + "; it has to wait");
    }
    acceptAt = relay::Clock::now() + kUntilNextTry;
    return std::nullopt;
  }
}

void Share::Accept(const Listener& listener, Role role) {
  std::optional<Connection> connection = TakeNext(listener);
  if (!connection) {
    return;
  }
  const Multiplexer::Peer number = ++lastNumber;
  multiplexer.Join(number, role);
  const Peer& peer = peers.try_emplace(number, std::move(*connection), role).first->second;
  loop.Watch(
      peer.connection.Descriptor(), [this, number] { return Wanted(number); },
      [this, number](short ready) { OnReady(number, ready); });
  PrintNotice(Text(role, number) + " is there");
  if (peers.size() == kMostPeers) {
    PrintNotice("these are " + std::to_string(kMostPeers) +
                ", the most there can be: whoever comes now waits until one leaves");
  }
}

// What a watcher sends goes no further, so that it waits for nobody.
bool Share::MayReceive(Multiplexer::Peer number, const Peer& peer) const {
  if (peer.hasLeft || peer.endsAt) {
    return !peer.hasLeft;
  }
  const bool isFree = client.Unsent() < kMostForService && !multiplexer.IsBusy();
  return peer.role == Role::kWatches || (isFree && multiplexer.MayTake(number));
}

short Share::Wanted(Multiplexer::Peer number) const {
  const Peer& peer = peers.at(number);
  return static_cast<short>((MayReceive(number, peer) ? POLLIN : 0) |
                            (peer.connection.Unsent() > 0 ? POLLOUT : 0));
}

void Share::OnReady(Multiplexer::Peer number, short ready) {
  Peer& peer = peers.at(number);
  if ((ready & POLLOUT) != 0) {
    peer.connection.Flush();
  }
  if ((ready & ~POLLOUT) != 0) {
    std::string bytes;
    peer.hasLeft = !peer.connection.Receive(bytes);
    if (!peer.endsAt) {
      peer.input.Add(bytes);
    }
  }
  Work();
}

// What the peers have sent, and those that are done with.
void Share::Work() {
  std::vector<Multiplexer::Peer> over;
  for (auto& [number, peer] : peers) {
    if (!peer.endsAt && !TakeFrom(number, peer)) {
      multiplexer.Leave(number);
      BeginEnd(peer);
    }
    if (IsOver(peer)) {
      over.push_back(number);
    }
  }
  for (const Multiplexer::Peer number : over) {
    Remove(number);
  }
}

// Whether the peer stays. What it has asked before it left is answered, as it would be without us.
bool Share::TakeFrom(Multiplexer::Peer number, Peer& peer) {
  while (!peer.isTooSlow && multiplexer.MayTake(number)) {
    const std::optional<std::string> packet = peer.input.Next();
    if (packet && !multiplexer.Take(number, *packet)) {
      return false;
    }
    if (!packet) {
      break;
    }
  }
  const bool isDone = peer.hasLeft || peer.input.IsBroken();
  return !peer.isTooSlow && (!isDone || multiplexer.IsAsking(number));
}

void Share::BeginEnd(Peer& peer) {
  peer.endsAt = relay::Clock::now() + kFarewell;
  peer.input.Clear();
}

// The end is told behind what is unsent. What the peer still sends is taken and dropped until it
// closes, too: closing over it would take from the peer what it has not read.
bool Share::IsOver(Peer& peer) {
  if (peer.isTooSlow) {
    return true;
  }
  if (!peer.endsAt) {
    return false;
  }
  const bool isAllSent = peer.connection.Unsent() == 0;
  if (isAllSent && !std::exchange(peer.isTold, true)) {
    peer.connection.EndSending();
  }
  return (isAllSent && peer.hasLeft) || relay::Clock::now() >= *peer.endsAt;
}

void Share::Remove(Multiplexer::Peer number) {
  const Peer& peer = peers.at(number);
  const size_t unsent = peer.connection.Unsent();
  std::string what = " has left";
  if (unsent > 0) {
    peer.connection.BreakOff();
    what = " is dropped: it did not read, and " + std::to_string(unsent) + " bytes waited for it";
  }
  PrintNotice(Text(peer.role, number) + what);
  loop.Forget(peer.connection.Descriptor());
  peers.erase(number);
}

std::optional<relay::Clock::time_point> Share::NextEnd() const {
  std::optional<relay::Clock::time_point> next;
  for (const auto& [number, peer] : peers) {
    if (peer.endsAt && (!next || *peer.endsAt < *next)) {
      next = peer.endsAt;
    }
  }
  return next;
}
