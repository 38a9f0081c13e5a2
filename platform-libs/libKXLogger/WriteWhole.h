// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string_view>

namespace kxlogger {

struct WriteOutcome {
  std::size_t written = 0;
  int error = 0;  // errno of the write that failed, or 0: everything is written
};

// Writes `text` with one `write`; only after an interrupt or a short write are there more.
// Safe in a signal handler.
WriteOutcome WriteWhole(int descriptor, std::string_view text);

}  // namespace kxlogger
