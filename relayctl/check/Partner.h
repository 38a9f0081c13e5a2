// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "serve/DeviceSide.h"

// The device at a port during a trial, without times and without I/O: it echoes, or does what the
// device of a recording did. Unlike that of `serve` it looks at what it is asked, so that it can
// talk with a program which, after a broken link, asks again or goes on where it was.
class Partner {
 public:
  using Gives = std::function<void(const std::string& bytes)>;
  using Refuses = std::function<void(uint16_t status)>;  // the next open or close

  // `deviceSteps`: of a recording; nothing: it echoes.
  Partner(std::optional<std::vector<RecordedStep>> deviceSteps, Gives giver, Refuses refuser);

  void LinkBegins();
  void Opened();
  void Take(std::string_view bytes);

  // What it gave last has not reached the program.
  void LoseLast();

  // Whether the recording's last bytes have gone over the link, in any of the trial's links.
  bool WasAtEnd() const;

  // What it is waiting for, and what came that the recording does not have.
  std::string Rest() const;

 private:
  void Advance();
  bool IsExpected() const;
  std::optional<size_t> Fitting() const;
  bool MayStillFit() const;

  const std::optional<std::vector<RecordedStep>> steps;
  const Gives gives;
  const Refuses refuses;
  std::vector<bool> done;
  size_t next = 0;
  bool wasOpened = false;
  std::optional<size_t> lastGiven;
  std::string taken;    // that fits no step as a whole yet
  std::string strange;  // that fits none
};
