// SPDX-License-Identifier: MIT
#include "Linux/Console.h"

#include <fcntl.h>
#include <unistd.h>

#include <limits>

#include "Linux/LinuxLock.h"
#include "Linux/LockGuard.h"
#include "Linux/StreamWriter.h"

namespace {

class CStream {
 public:
  explicit CStream(int number) : writer(number, std::numeric_limits<int>::max()) {}

  void Unblock() { writer.Unblock(); }

  void Write(std::string_view text) {
    const CLockGuard guard(lock);
    (void)writer.Write(text);
  }

  // Whoever holds the lock lets go of it soon.
  void WriteLast(std::string_view text) {
    writer.Hurry();
    const CLockGuard guard(lock);
    (void)writer.WriteLast(text);
  }

 private:
  CLinuxLock lock;  // keeps other lines out of the middle of a long one on a full pipe
  CStreamWriter writer;
};

// Made before main, so that they outlive whatever writes on the way out.
CStream output(STDOUT_FILENO);
CStream error(STDERR_FILENO);

}  // namespace

void WriteStandardOutput(std::string_view text) { output.Write(text); }

void WriteStandardError(std::string_view text) { error.Write(text); }

void WriteLastStandardError(std::string_view text) { error.WriteLast(text); }

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

void UnblockStandardStreams() {
  output.Unblock();
  error.Unblock();
}
