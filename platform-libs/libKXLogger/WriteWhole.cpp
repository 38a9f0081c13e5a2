// SPDX-License-Identifier: MIT
#include "libKXLogger/WriteWhole.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace kxlogger {
namespace {

bool BecomesWritable(int descriptor, int patience) {
  pollfd entry = {descriptor, POLLOUT, 0};
  return patience > 0 && poll(&entry, 1, patience) > 0;
}

}  // namespace

WriteOutcome WriteWhole(int descriptor, std::string_view text, int patience) {
  WriteOutcome outcome;
  while (outcome.written < text.size()) {
    const ssize_t count =
        write(descriptor, text.data() + outcome.written, text.size() - outcome.written);
    if (count > 0) {
      outcome.written += static_cast<std::size_t>(count);
    } else if (count == 0) {
      outcome.error = EIO;  // a stream that takes nothing would keep the caller here for ever
      return outcome;
    } else if (errno == EAGAIN && BecomesWritable(descriptor, patience)) {
      continue;
    } else if (errno != EINTR) {
      outcome.error = errno;
      return outcome;
    }
  }
  return outcome;
}

}  // namespace kxlogger
