// SPDX-License-Identifier: MIT
#include "link/PeerSocket.h"

#include <utility>

bool PeerSocket::Accept() {
  if (peer) {
    return false;
  }
  if (std::optional<Connection> next = listener.Accept()) {
    peer.emplace(std::move(*next));
  }
  return peer.has_value();
}

bool PeerSocket::Receive(std::string& bytes) {
  const bool isThere = peer && peer->Receive(bytes);
  if (!isThere) {
    Drop();
  }
  return isThere;
}

void PeerSocket::Send(std::string_view bytes) {
  if (peer) {
    peer->Send(bytes);
  }
}

void PeerSocket::Flush() {
  if (peer) {
    peer->Flush();
  }
}

void PeerSocket::EndSending() const {
  if (peer) {
    peer->EndSending();
  }
}

void PeerSocket::Reset() {
  if (peer) {
    peer->BreakOff();
  }
  Drop();
}
