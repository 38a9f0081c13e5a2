// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The far end of a serial line: a pseudo-terminal in raw mode, whose other side bridges open under
// the name of a device node. One thread may read while another writes. Errors: std::system_error.
class Line {
 public:
  // Makes the node `path`, a symbolic link, in place of whatever stands there.
  explicit Line(const std::string& path);
  ~Line();
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  void Write(const uint8_t* data, size_t count) const;    // all of it
  size_t ReadSome(uint8_t* data, size_t capacity) const;  // waits for at least one byte
  // What there is room for, or comes to be within so many milliseconds; 0 when none does.
  size_t TryWrite(const uint8_t* data, size_t count, int milliseconds) const;
  void ReadExactly(uint8_t* data, size_t count) const;

 private:
  int master;
  int slave;  // held open, so that the line stays raw and never hangs up
};
