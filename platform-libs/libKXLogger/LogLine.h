// SPDX-License-Identifier: MIT
// The text of one log line. Nothing here touches the system: no allocation, no lock, no locale.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <span>
#include <string_view>

namespace kxlogger {

// Bytes of the longest line, its newline included. It is PIPE_BUF: a pipe takes so much in one
// piece, so that lines of several writers do not mix there either.
inline constexpr std::size_t kLineSize = 4096;

// Seconds, and what has passed of the next one: as the clock tells them, and as they are shown. To
// part one number again takes a division of 64 bits, for which 32-bit processors call a function.
struct LogTime {
  std::chrono::sys_seconds second;
  std::uint32_t microsecond = 0;  // below 1,000,000
};

// What the clock shows: a microsecond counts when it is over.
constexpr LogTime TimeOf(const timespec& clock) {
  return {std::chrono::sys_seconds(std::chrono::seconds(clock.tv_sec)),
          static_cast<std::uint32_t>(clock.tv_nsec) / 1000};
}

struct LogRecord {
  LogTime time;
  int level = 0;
  std::string_view module;
  std::string_view file;
  std::string_view line;
  std::string_view tag;
  std::string_view message;
};

// Writes `prefix` and then "TIMESTAMP LEVEL MODULE FILE:LINE TAG MESSAGE\n" into `buffer` (at least
// four bytes) and returns the number of bytes written; no zero follows them.
// Newlines at the end of the message are dropped. Any other control byte is shown as \xNN, in every
// field, so that a line stays one line; bytes from 0x80 on (UTF-8) pass. A line that does not fit
// ends in "...", behind the last character that fits whole.
// The year is shown with four digits; a time outside of 0000 to 9999 is shown as the nearest end.
std::size_t ComposeLine(std::span<char> buffer, std::string_view prefix, const LogRecord& record);

// The journal's priority of a level: 0 and below <2> (critical), 1 <3> (error), 2 <4> (warning),
// 3 <6> (information), above <7> (debug).
std::string_view JournalPrefix(int level);

// Whether `journalStream`, "DEVICE:INODE" in decimal, names that stream.
bool NamesStream(std::string_view journalStream, std::uint64_t device, std::uint64_t inode);

}  // namespace kxlogger
