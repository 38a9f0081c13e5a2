// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>

#include "Keys.h"
#include "relay/LineCutter.h"

class Desk;
class Loop;

// How a person or a program reaches the desk: single keys where standard input is a terminal, lines
// there where it is none, and SIGUSR1 and SIGUSR2.
class Controls {
 public:
  // Both outlive it. A signal provokes its text.
  Controls(Loop& ownLoop, Desk& servedDesk, const std::string& onUsr1, const std::string& onUsr2);
  ~Controls();
  Controls(const Controls&) = delete;
  Controls& operator=(const Controls&) = delete;

  bool IsOver() const { return isOver; }

 private:
  static constexpr size_t kLongestLine = 65536;  // a longer one is none

  void TakeKeys();
  void TakeLines();
  void Provoke(const std::string& text);
  static void Help();

  Loop& loop;
  Desk& desk;
  Keys keys;
  relay::LineCutter lines{"\n", kLongestLine};
  bool isOver = false;
};
