// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>
#include <termios.h>

// A person's terminal in raw mode: each key comes at once, unechoed, and Ctrl-C is a byte. Lines
// that are shown still end in a new line's beginning, so LF alone serves.
//
// The old settings come back when the object goes, and also when the process is killed: a second
// process, which does nothing else, waits for that. Make the object before any thread is started.
class RawTerminal {
 public:
  // `terminal`: a descriptor that stays open. Throws std::system_error when it is no terminal.
  explicit RawTerminal(int terminal);
  ~RawTerminal();
  RawTerminal(const RawTerminal&) = delete;
  RawTerminal& operator=(const RawTerminal&) = delete;

  void Restore() const;  // the old settings, for a while
  void SetRaw() const;   // raw mode again

 private:
  void StartKeeper();

  int terminal;
  termios before{};
  int keeperPipe = -1;
  pid_t keeper = -1;
};
