// SPDX-License-Identifier: MIT
#include "libKXLogger/WriteWhole.h"

#include <unistd.h>

#include <cerrno>

namespace kxlogger {
WriteOutcome WriteWhole(int descriptor, std::string_view text) {
  WriteOutcome outcome;
  while (outcome.written < text.size()) {
    const ssize_t count =
        write(descriptor, text.data() + outcome.written, text.size() - outcome.written);
    if (count > 0) {
      outcome.written += static_cast<std::size_t>(count);
    } else if (count == 0) {
      outcome.error = EIO;  // a stream that takes nothing would keep the caller here for ever
      return outcome;
    } else if (errno != EINTR) {
      outcome.error = errno;
      return outcome;
    }
  }
  return outcome;
}

}  // namespace kxlogger
