// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "relay/ByteQueue.h"

// Listens on 127.0.0.1 in the service's place, and serves one relay service at a time, as the
// service does. Nothing blocks.
class PeerSocket {
 public:
  // `isPatient`: small packets wait for the acknowledgement of those before, as the service's do.
  // Throws relay::Error when the port cannot be had.
  explicit PeerSocket(uint16_t tcpPort, bool isPatient = false);
  ~PeerSocket();
  PeerSocket(const PeerSocket&) = delete;
  PeerSocket& operator=(const PeerSocket&) = delete;

  int Listening() const { return listening; }
  int Peer() const { return peer; }  // -1: none
  size_t Unsent() const { return outgoing.Size(); }

  // Takes the next peer, if there is one.
  bool Accept();

  // "127.0.0.1", as a rule: all of 127.0.0.0/8 gets here.
  const std::string& PeerAddress() const { return peerAddress; }

  // What has come; empty: nothing. False when the peer has left, and then it is dropped.
  bool Receive(std::string& bytes);

  void Send(std::string_view bytes);
  void Flush();
  void Drop();
  void Reset();             // the same, and the peer is told that it is no orderly end
  void EndSending() const;  // behind what the system has taken

 private:
  const int listening;
  const bool waitsForAcknowledgements;
  int peer = -1;
  std::string peerAddress;
  relay::ByteQueue outgoing;
};
