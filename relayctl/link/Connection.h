// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "relay/ByteQueue.h"

// One peer's end of a TCP connection, as the side that listened has it. Nothing blocks.
class Connection {
 public:
  // Takes a socket that does not block. `peerAddress`: "127.0.0.1".
  Connection(int ownSocket, std::string peerAddress);
  ~Connection();
  Connection(Connection&& other) noexcept;
  Connection& operator=(Connection&&) = delete;

  int Descriptor() const { return socket; }
  const std::string& Address() const { return address; }
  size_t Unsent() const { return outgoing.Size(); }

  // What has come, at most 64 KiB; empty: nothing. False when the peer has left, by what way ever.
  bool Receive(std::string& bytes) const;

  // What the system does not take is kept, without a limit, unless the connection is broken, of
  // which Receive tells.
  void Send(std::string_view bytes);
  void Flush();

  // Behind what the system has taken.
  void EndSending() const;

  // Closing it will tell the peer that it is no orderly end, and drop what is on its way.
  void BreakOff() const;

 private:
  int socket;
  std::string address;
  relay::ByteQueue outgoing;
};
