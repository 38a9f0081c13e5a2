// SPDX-License-Identifier: MIT
#include "serve/ServedLink.h"

#include <poll.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "link/Loop.h"

namespace {

// The service looks so often whether the link has ended.
constexpr relay::Millis kUntilNextListen{250};

}  // namespace

ServedLink::ServedLink(Loop& ownLoop, uint16_t port, Owner linkOwner)
    : loop(ownLoop), tcpPort(port), owner(std::move(linkOwner)) {
  loop.When([this] { return listenAt; }, [this] { Listen(); });
  Listen();
}

// Anew each time, so that who waits in the old queue is reset.
void ServedLink::Listen() {
  listenAt.reset();
  if (socket) {
    loop.Forget(socket->Listening());
    loop.Forget(std::exchange(watchedPeer, -1));
    socket.reset();
  }
  socket.emplace(tcpPort, true);
  loop.Watch(
      socket->Listening(), [this] { return isUp || listenAt ? short{0} : short{POLLIN}; },
      [this](short) { Accept(); });
  owner.tell("listening on 127.0.0.1:" + std::to_string(tcpPort));
}

void ServedLink::Accept() {
  if (!socket->Accept()) {
    return;
  }
  isUp = true;
  framer.Drop();
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
  while (isUp && !input.IsEmpty()) {
    const std::string_view bytes = input.View().substr(0, framer.Wanted());
    std::memcpy(framer.Space(), bytes.data(), bytes.size());
    const bool isWhole = framer.Take(static_cast<uint16_t>(bytes.size()));
    input.Take(bytes.size());
    if (isWhole) {
      std::string packet(reinterpret_cast<const char*>(framer.Packet()), framer.Length());
      framer.Drop();
      return packet;
    }
    if (framer.Wanted() == 0) {
      End();
    }
  }
  return std::nullopt;
}

void ServedLink::Send(std::string_view packet) {
  if (isUp) {
    socket->Send(packet);
  }
}
