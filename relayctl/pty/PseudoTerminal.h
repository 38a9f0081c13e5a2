// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "pty/LastWill.h"
#include "pty/TerminalPlace.h"

// A pseudo-terminal that other programs open like a serial port, in raw mode and without echo.
//
// Nobody has the near end open: nothing is read, nothing is taken, and nothing is busy; the
// descriptor Openings() becomes readable when somebody opens it. When the last one closes it, what
// was not read is thrown away and raw mode is set again, as the next one expects it.
// Threads: one.
class PseudoTerminal {
 public:
  // Throws std::system_error. A symbolic link that stands at the place is replaced, anything else
  // is an error (EEXIST).
  explicit PseudoTerminal(const TerminalPlace& place);

  // Removes the link, if it is still this one's. It goes also when the process is killed.
  ~PseudoTerminal();
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  // The near end's own path: "/dev/pts/7".
  const std::string& Node() const { return node; }

  // To poll: Bytes() only while InUse().
  int Bytes() const { return farEnd; }
  int Openings() const { return watch; }

  bool InUse() const { return inUse; }

  // After Openings() has become readable, or to find out. True when InUse() has changed.
  bool Look();

  // What programs have written: at most `size` bytes; 0 when there is nothing, or nobody any more:
  // InUse() is then up to date. Never waits.
  size_t Read(char* bytes, size_t size);

  // How many of the bytes the near end takes at the moment. Never waits.
  size_t Write(const char* bytes, size_t size);

 private:
  struct Link;

  void MakeLink(const std::string& path);
  void Settle();
  bool DrainOpenings() const;
  bool HasNobody() const;

  std::string node;
  std::unique_ptr<Link> link;
  int farEnd = -1;
  int watch = -1;
  bool inUse = false;
  std::unique_ptr<LastWill> will;
};
