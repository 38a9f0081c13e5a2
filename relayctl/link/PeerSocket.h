// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "link/Connection.h"
#include "link/Listener.h"

// Listens on 127.0.0.1 in the service's place, and serves one relay service at a time, as the
// service does. Nothing blocks.
class PeerSocket {
 public:
  // Throws relay::Error when the port cannot be had.
  explicit PeerSocket(uint16_t tcpPort, Listener::Sends sends = Listener::Sends::kAtOnce)
      : listener(tcpPort, 1, sends) {}

  int Listening() const { return listener.Descriptor(); }
  int Peer() const { return peer ? peer->Descriptor() : -1; }  // -1: none
  size_t Unsent() const { return peer ? peer->Unsent() : 0; }

  // Takes the next peer, if there is one.
  bool Accept();

  // "127.0.0.1", as a rule: all of 127.0.0.0/8 gets here. Empty: there is none.
  std::string PeerAddress() const { return peer ? peer->Address() : std::string(); }

  // What has come; empty: nothing. False when the peer has left, and then it is dropped.
  bool Receive(std::string& bytes);

  // Each does nothing without a peer.
  void Send(std::string_view bytes);
  void Flush();
  void Drop() { peer.reset(); }
  void Reset();             // the same, and the peer is told that it is no orderly end
  void EndSending() const;  // behind what the system has taken

 private:
  const Listener listener;
  std::optional<Connection> peer;
};
