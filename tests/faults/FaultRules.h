// SPDX-License-Identifier: MIT
// Lets calls of the C library fail in a process that preloads this library.
//
// FAULTS is a list of FUNCTION:RESULT:CALLS[:PATH] with commas between them:
//   RESULT  the name of an errno: the call fails with it and is not made. "0": it returns 0 and is
//           not made. "short": it is made for one byte. "slow": it is made three seconds later
//           (read only).
//   CALLS   "3" the third call, "3-5", "3-" all from the third on, or "@" all calls while the file
//           /dev/shm/faults-now exists. Calls are counted per entry, and only those on PATH.
//   PATH    what the path, or what the descriptor leads to, begins with.
// Each call that was spoilt adds a line to /dev/shm/faults-made. The programs that the process
// starts are spared.
//
// Nothing here may allocate, lock or use a stream: the calls come from anywhere.
#pragma once

#include <atomic>
#include <string_view>

// An entry's results that are not an errno.
constexpr int kShort = -1;
constexpr int kSlow = -2;

struct Rule {
  std::string_view function;
  std::string_view path;
  int result = 0;
  bool isGated = false;
  unsigned first = 0;
  unsigned last = 0;
  std::atomic<unsigned> calls{0};
};

// The rule that spoils this call, if any: of whatever, on a descriptor, or at a path. errno is then
// the rule's.
const Rule* FaultIn(std::string_view function);
const Rule* FaultOn(std::string_view function, int descriptor);
const Rule* FaultAt(std::string_view function, const char* path);
