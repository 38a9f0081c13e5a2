// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

#include "link/Connection.h"

// Listens on 127.0.0.1. Nothing blocks.
class Listener {
 public:
  enum class Sends { kAtOnce, kPatiently };

  // `queue`: how many connections may wait. `sends`: whether small packets wait for the
  // acknowledgement of those before, as the service's do. Throws relay::Error when the port cannot
  // be had.
  Listener(uint16_t tcpPort, int queue, Sends sends = Sends::kAtOnce);
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  int Descriptor() const { return listening; }

  // The next of those that wait; none when it has left again. Throws kSystem when this process, or
  // the system, has no means for one more: who does not end of it has to pause before the next try,
  // as the descriptor stays ready.
  std::optional<Connection> Accept() const;

 private:
  const int listening;
  const bool isPatient;
};
