// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

namespace relay {

// Cuts what one port sends into lines. A line that was sent while nobody was linked, or had the
// port open, is missed from its beginning on: the first line may be the end of one.
//
// Its memory is bounded by `longest` and `most`, and by the piece that is added: a line that is too
// long is dropped as a whole, never cut, and so is one that finds no room because nobody takes
// lines. Threads: one at a time.
class LineCutter {
 public:
  static constexpr size_t kLongest = 4096;
  static constexpr size_t kMost = 65536;

  // `lineEnd`: what ends each line, one byte or more; throws kUsage when there is none. `longest`:
  // the most bytes of a line without its end. `most`: of all whole lines together, with their ends;
  // one line alone always finds room.
  explicit LineCutter(std::string lineEnd = "\n", size_t longest = kLongest, size_t most = kMost);

  // Takes the bytes, in pieces of any size.
  void Add(std::string_view bytes);

  // The next whole line, without its end, or nothing as yet.
  std::optional<std::string> Next();

  // Forgets the line that is not whole yet: the link has ended, and what follows is no part of it.
  void DropUnfinished();

  // How many lines have been dropped so far, because they were too long or found no room.
  uint64_t Lost() const { return lost; }

  // Bytes that it holds.
  size_t Size() const { return held + unfinished.size(); }

 private:
  void TakeLine();

  const std::string end;
  const size_t longestLine;
  const size_t mostHeld;
  std::deque<std::string> lines;
  size_t held = 0;         // bytes of `lines`, with their ends
  std::string unfinished;  // of a line that is too long only as much as may belong to its end
  bool isTooLong = false;
  uint64_t lost = 0;
};

}  // namespace relay
