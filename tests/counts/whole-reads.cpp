// SPDX-License-Identifier: MIT
// Preloaded into the service while its instructions are counted: a read from a terminal gives
// WHOLE_READS bytes, however the pseudo-terminal's driver has cut them, or none when none come in
// time. So each message is one read in every run.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>

namespace {

using Read = ssize_t (*)(int, void*, size_t);

size_t WantedBytes() {
  const char* const text = std::getenv("WHOLE_READS");
  return text != nullptr ? std::strtoul(text, nullptr, 10) : 0;
}

// Asked once: what is done here at each read is counted, too. A thread that has read from a
// terminal reads from nothing else.
[[gnu::tls_model("initial-exec")]] thread_local bool readsTerminal = false;

}  // namespace

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the C library's are reserved
extern "C" __attribute__((visibility("default"))) ssize_t read(int descriptor, void* buffer,
                                                               size_t capacity) {
  static const auto next = reinterpret_cast<Read>(dlsym(RTLD_NEXT, "read"));
  static const size_t wanted = WantedBytes();
  readsTerminal = readsTerminal || isatty(descriptor) != 0;
  if (!readsTerminal) {
    return next(descriptor, buffer, capacity);
  }
  size_t done = 0;
  while (done < wanted) {
    const ssize_t count = next(descriptor, static_cast<char*>(buffer) + done, capacity - done);
    if (count < 0 || (count == 0 && done == 0)) {
      return count;
    }
    done += static_cast<size_t>(count);
  }
  return static_cast<ssize_t>(done);
}
