// SPDX-License-Identifier: MIT
#pragma once

#include <termios.h>

#include <memory>

#include "pty/LastWill.h"

// A person's terminal in raw mode: each key comes at once, unechoed, and Ctrl-C is a byte. Lines
// that are shown still end in a new line's beginning, so LF alone serves.
//
// The old settings come back when the object goes, and also when the process is killed.
class RawTerminal {
 public:
  // `descriptor` stays open. Throws relay::Error when it is no terminal.
  explicit RawTerminal(int descriptor);
  ~RawTerminal();
  RawTerminal(const RawTerminal&) = delete;
  RawTerminal& operator=(const RawTerminal&) = delete;

  void Restore() const;  // the old settings, for a while
  void SetRaw() const;   // raw mode again

 private:
  int terminal;
  termios before{};
  std::unique_ptr<LastWill> will;
};
