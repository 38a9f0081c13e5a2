// SPDX-License-Identifier: MIT
#pragma once

#include <string>

// A terminal as programs are started on: a pseudo-terminal with output processing. The test is its
// window.
class Terminal {
 public:
  Terminal();
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // For programs to write to, as a path and open.
  const std::string& Node() const { return node; }
  int NearEnd() const { return nearEnd; }

  // What the window reads.
  int FarEnd() const { return farEnd; }

 private:
  int farEnd;
  std::string node;
  int nearEnd = -1;
};

// Makes a pipe or terminal one that this process, and those it starts, cannot open again, as if it
// were another user's. Takes the process's capabilities away: for a child of the test.
void ForbidReopening(int stream);
