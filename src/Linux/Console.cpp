// SPDX-License-Identifier: MIT
#include "Linux/Console.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "Linux/LinuxLock.h"
#include "Linux/LockGuard.h"

namespace {

// One for each stream. A pipe that is full would otherwise let another line into the middle of a
// long one. Made before main, so that they outlive whatever writes on the way out.
CLinuxLock outputLock;
CLinuxLock errorLock;

void WriteWhole(int descriptor, CAbstractLock& lock, std::string_view text) {
  const CLockGuard guard(lock);
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<size_t>(written));
    } else if (written == 0 || errno != EINTR) {
      return;
    }
  }
}

}  // namespace

void WriteStandardOutput(std::string_view text) { WriteWhole(STDOUT_FILENO, outputLock, text); }

void WriteStandardError(std::string_view text) { WriteWhole(STDERR_FILENO, errorLock, text); }

void EnsureStandardStreams() {
  // open gives the lowest free number, so the loop ends at the first one above the three.
  int descriptor = 0;
  do {
    descriptor = open("/dev/null", O_RDWR);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor > STDERR_FILENO) {
    (void)close(descriptor);
  }
}
