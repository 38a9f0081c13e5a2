// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>

#include "relay/Client.h"

// Looks into a network where nobody listens: how often the program in it tries to connect, and
// whether a try succeeds. There, it can only be connected to itself.
class SelfLook {
 public:
  SelfLook() = default;
  ~SelfLook();
  SelfLook(const SelfLook&) = delete;
  SelfLook& operator=(const SelfLook&) = delete;

  struct Result {
    std::string problem;  // why there is no such network
    size_t tries = 0;
    size_t perSecond = 0;  // tries in the first second from the first one on
    bool isToItself = false;
  };

  void Start(pid_t programInIt);
  void Fail(const std::string& why) { result.problem = why; }

  bool IsBusy() const { return counters != -1 && !isOver; }
  std::optional<relay::Clock::time_point> Due() const;
  void Work();
  void LookAtLast();  // when the program has ended, or may end
  const Result& Told() const { return result; }

 private:
  void Look();

  int counters = -1;      // of its network, which it outlives
  size_t successful = 0;  // tries that have not failed, as of the last look
  bool isOver = false;
  std::optional<relay::Clock::time_point> firstTry;
  relay::Clock::time_point nextLook{};
  Result result;
};
