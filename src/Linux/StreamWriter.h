// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <atomic>
#include <string_view>

// Writes texts to a stream of the process, whatever it is, and never waits for a reader that does
// not read: such a stream loses the text. The stream's description is shared with other programs,
// so it is left as it is.
// Threads: any number, and signal handlers. There is no lock: on a full stream the texts of several
// threads may mix, and whoever minds takes a lock around Write. A waiting thread can be cancelled.
class CStreamWriter {
 public:
  // `longest`: the milliseconds that one text may wait in all, however steadily the reader reads.
  constexpr CStreamWriter(int number, int longest) : stream(number), longestWait(longest) {}

  // Finds the way in which this stream does not block; without it Write is a plain write. The first
  // call decides: the stream must not be replaced afterwards.
  void Unblock();

  // Writes the whole text, with one system call when there is room. On false the stream has none of
  // it, or its beginning; then the next text starts on a line of its own.
  // Whoever has not read for a second costs no further wait until he reads again.
  bool Write(std::string_view text) { return Write(text, false); }

  // For the way out of the process: from now on no text waits, not even one that waits already...
  void Hurry() { isHurried = true; }

  // ...but the last one: five seconds at most.
  bool WriteLast(std::string_view text) { return Write(text, true); }

 private:
  enum class Way : int { kPlain, kSend, kOwn, kTimed };
  struct Wait;

  bool OpenOwn();
  bool Write(std::string_view text, bool isLast);
  void LookAfterStall();
  bool WriteWhole(std::string_view text, Wait& wait);
  ssize_t TryWrite(std::string_view text) const;
  bool WaitForRoom(Wait& wait);
  bool GivesUp(const Wait& wait);
  int Queued() const;

  static_assert(std::atomic<int>::is_always_lock_free);
  static_assert(std::atomic<bool>::is_always_lock_free);
  static_assert(std::atomic<Way>::is_always_lock_free);

  const int stream;
  const int longestWait;
  std::atomic<bool> isDecided = false;
  std::atomic<Way> way = Way::kPlain;
  std::atomic<int> own = -1;            // a description of our own, which does not block
  std::atomic<bool> isStalled = false;  // a text found no room in time, and nobody has read since
  std::atomic<int> queuedAtStall = 0;
  std::atomic<bool> isCut = false;      // the stream ends in the beginning of a text
  std::atomic<bool> isHurried = false;  // the process ends
};
