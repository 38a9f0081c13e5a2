// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

#include "libKXLogger/LogLine.h"

namespace kxlogger {

// The log file: one descriptor for the life of the process, opened at the first line and kept
// through rotation. It is deliberately never closed, so that lines can be logged to the very end.
// Threads: any number, and signal handlers that interrupt any step of these functions. There is no
// lock: each field is atomic, and every order of their changes leaves a file to write to.
class LogFile {
 public:
  // Appends one line to the file at `path`, always the same, and returns true. On false nothing, or
  // only the beginning of the line, is in the file; why is said on standard error, once until a
  // line succeeds again or the reason changes. Every line tries anew.
  // At most once a second it looks whether `path` still leads to the open file. Lines of that
  // second still reach a file that was renamed; those in a file that was removed are gone.
  bool Append(const char* path, const LogRecord& record);

 private:
  // All four: 0 or the errno of what failed.
  int MakeReady(const char* path, std::chrono::sys_seconds now);
  int OpenFirst(const char* path);
  int Replace(int current, const char* path);
  int Write(int current, const LogRecord& record);

  static_assert(std::atomic<int>::is_always_lock_free);
  static_assert(std::atomic<bool>::is_always_lock_free);
  static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

  std::atomic<int> descriptor = -1;  // set once; from then on the number stays, the file may change
  std::atomic<std::uint32_t> checkedSecond = 0;  // low bits are enough to tell seconds apart
  std::atomic<bool> lost = false;                // the path leads to no file that could be opened
  std::atomic<bool> torn = false;                // the file ends in the beginning of a line
  std::atomic<int> reported = 0;                 // the errno that was last told, 0 in good order
};

}  // namespace kxlogger
