// SPDX-License-Identifier: MIT
#pragma once

#include <termios.h>

// Single keys from a terminal, without Enter and unseen, while Ctrl-C and Ctrl-Z work as ever.
// Nothing happens when standard input is no terminal.
class Keys {
 public:
  Keys();
  ~Keys();
  Keys(const Keys&) = delete;
  Keys& operator=(const Keys&) = delete;

  bool AreThere() const { return isTerminal; }

  // The next key; 0: none at the moment, or the terminal is gone.
  char Next();

 private:
  bool isTerminal = false;
  termios before{};
};
