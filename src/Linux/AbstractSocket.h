// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

// One TCP stream to a peer on this machine, as the listening or the connecting side.
//
// Results: Listen, Connect and Close return 0, or the errno of the call that failed. Nothing
// throws, nothing goes to the log.
// Threads: one thread may wait in Recv while others Send and another Closes. Close does not wake a
// thread that waits in Recv or Send.
class CAbstractSocket {
 public:
  virtual ~CAbstractSocket() = default;

  // Waits, without limit, for one peer on 127.0.0.1 and the low 16 bits of `port` (host byte
  // order). A peer with another address is turned away and ends the call with an error.
  // When already listening: 0 at once, and no second peer is accepted.
  // A Close from a signal handler on the waiting thread ends the wait with an error.
  virtual int Listen(uint32_t port) = 0;

  // Connects to 127.0.0.1 and the low 16 bits of `port`; blocks. When already connected: 0.
  virtual int Connect(uint32_t port) = 0;

  // Closes the stream and the listening end. 0, also when there is nothing to close. The object
  // can be opened again. A signal handler may call it.
  virtual int Close() = 0;

  // One send: the number of bytes taken, which can be less than `length`, or -1 with errno set.
  // Blocks while the peer does not read.
  virtual int Send(const uint8_t* data, int length) = 0;

  // One receive of at most `capacity` bytes: how many came, or -1 when the peer has shut the
  // stream down, on an error, and for a capacity below 1. Blocks until something comes.
  virtual int Recv(uint8_t* buffer, int capacity) = 0;
};
