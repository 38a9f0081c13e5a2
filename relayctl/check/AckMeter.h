// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "relay/Client.h"

// Measures how long a second small packet waits in this kernel for the acknowledgement of the one
// before, as the service's do: the peer's kernel acknowledges at once at first, and late from some
// packet on, unless the program asks for it again and again (TCP_QUICKACK). Nothing blocks.
class AckMeter {
 public:
  // Begins on this connection, with `packet` again and again. The owner calls Work when it is due.
  void Start(int connection, const std::string& packet);

  bool IsBusy() const { return round > 0 && round <= kRounds; }
  std::optional<relay::Clock::time_point> Due() const;
  void Work();

  // The shortest wait, once all is over: a machine that is busy makes others longer.
  std::optional<relay::Clock::duration> Wait() const;

 private:
  static constexpr size_t kRounds = 24;
  static constexpr size_t kNotCounted = 9;  // the first ones, acknowledged at once in any case

  void BeginRound();
  int Waiting(unsigned long request) const;

  int socket = -1;
  std::string bytes;
  size_t round = 0;  // 0: not started; above kRounds: over
  bool isSecondOut = false;
  relay::Clock::time_point began{};
  relay::Clock::time_point nextLook{};
  std::vector<relay::Clock::duration> waits;
};
