// SPDX-License-Identifier: MIT
// A serial line with nothing but memory in it: a pseudo-terminal, whose near end the code under
// test opens and whose far end is the test.
#pragma once

#include <termios.h>

#include <string>

class PtyLine {
 public:
  PtyLine();
  ~PtyLine() { HangUp(); }
  PtyLine(const PtyLine&) = delete;
  PtyLine& operator=(const PtyLine&) = delete;

  // The path of the near end.
  const std::string& Node() const { return node; }

  void Sends(const std::string& bytes) const;

  // That many bytes; fewer when no more have come for 20 seconds. The near end may be closed
  // meanwhile and opened again.
  std::string Receives(size_t count) const;

  // Of the near end.
  termios Settings() const;

  // As if the adapter were unplugged: the near end is hung up and its path is gone.
  void HangUp();

 private:
  int descriptor;
  std::string node;
};

// How many descriptors this process holds.
int OpenDescriptorCount();
