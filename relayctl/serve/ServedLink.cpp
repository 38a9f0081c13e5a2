// SPDX-License-Identifier: MIT
#include "serve/ServedLink.h"

#include <poll.h>

#include <algorithm>
#include <utility>

#include "link/Loop.h"
#include "relay/Error.h"

namespace {

// The service looks so often whether the link has ended.
constexpr relay::Millis kUntilNextListen{250};

constexpr const char* kOnlyPeer = "127.0.0.1";

}  // namespace

ServedLink::ServedLink(Loop& ownLoop, uint16_t port, Owner linkOwner)
    : loop(ownLoop), tcpPort(port), owner(std::move(linkOwner)) {
  loop.When([this] { return listenAt; },
            [this] {
              Listen();
              TellWhere();
            });
  Listen();
}

// Whoever waits in the queue is reset.
void ServedLink::Deafen() {
  if (socket) {
    loop.Forget(socket->Listening());
    loop.Forget(std::exchange(watchedPeer, -1));
    socket.reset();
  }
}

void ServedLink::Listen() {
  listenAt.reset();
  Deafen();
  socket.emplace(tcpPort, Listener::Sends::kPatiently);
  loop.Watch(
      socket->Listening(), [this] { return isUp || listenAt ? short{0} : short{POLLIN}; },
      [this](short) { Accept(); });
}

void ServedLink::TellWhere() const {
  owner.tell("listening on 127.0.0.1:" + std::to_string(tcpPort));
}

void ServedLink::Accept() {
  if (!socket->Accept()) {
    return;
  }
  if (const std::string from = socket->PeerAddress(); from != kOnlyPeer) {
    throw relay::Error(relay::ErrorKind::kSystem,
                       "a peer came from " + from + ": it is refused, and the service ends");
  }
  isUp = true;
  input.Clear();
  watchedPeer = socket->Peer();
  loop.Watch(
      watchedPeer,
      [this] {
        return static_cast<short>((input.IsEmpty() && IsClear() ? POLLIN : 0) |
                                  (isUp && !IsClear() ? POLLOUT : 0));
      },
      [this](short ready) { OnPeer(ready); });
  owner.tell("a relay service is there");
}

void ServedLink::OnPeer(short ready) {
  if ((ready & POLLOUT) != 0) {
    socket->Flush();
  }
  if ((ready & ~POLLOUT) != 0) {
    std::string bytes;
    const bool isThere = socket->Receive(bytes);
    input.Add(bytes);
    if (!isThere) {
      End();
    }
  }
  owner.wake();
}

void ServedLink::End() {
  isUp = false;
  loop.Forget(std::exchange(watchedPeer, -1));
  listenAt = relay::Clock::now() + kUntilNextListen;
  owner.tell("the link has ended");
  owner.ended();
}

std::optional<std::string> ServedLink::Next() {
  std::optional<std::string> packet = isUp ? input.Next() : std::nullopt;
  if (isUp && input.IsBroken()) {
    End();
  }
  return packet;
}

void ServedLink::Send(std::string_view packet) {
  if (!isUp || packet.empty()) {
    return;
  }
  if (cut) {
    SendPart(packet);
  } else {
    socket->Send(packet);
  }
}

void ServedLink::SendPart(std::string_view packet) {
  const size_t size = std::min(cut->behind.value_or(packet.size() / 2), packet.size());
  cut.reset();
  socket->Send(packet.substr(0, size));
  socket->EndSending();
  owner.tell("a packet of " + std::to_string(packet.size()) + " bytes broke off behind " +
             std::to_string(size));
  End();
}

void ServedLink::End(Ending ending) {
  if (isUp) {
    End();
    ending == Ending::kReset ? socket->Reset() : socket->Drop();
  }
}

void ServedLink::GoAway(relay::Clock::duration time) {
  End(Ending::kOrderly);
  Deafen();
  listenAt = relay::Clock::now() + time;
  owner.tell("nobody listens on 127.0.0.1:" + std::to_string(tcpPort));
}
