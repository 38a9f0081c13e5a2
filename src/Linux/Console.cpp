// SPDX-License-Identifier: MIT
#include "Linux/Console.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "Linux/LinuxLock.h"
#include "Linux/LockGuard.h"

namespace {

// How long a reader may be slow. Whoever has not read for so long costs no further wait until the
// stream takes text again.
constexpr int kPatienceMilliseconds = 1000;

class CStream {
 public:
  explicit CStream(int standardNumber) : descriptor(standardNumber) {}

  // Takes a description of the stream that does not block, where there can be one: that of the
  // stream itself is shared with other programs.
  void Unblock();

  void Write(std::string_view text);

 private:
  bool WriteWhole(std::string_view text);
  ssize_t TryWrite(std::string_view text) const;
  bool BecomesWritable() const;

  CLinuxLock lock;  // keeps other lines out of the middle of a long one on a full pipe
  int descriptor;
  bool isSocket = false;
  bool isStalled = false;  // the last line did not get through
  bool isCut = false;      // and some of it did
};

void CStream::Unblock() {
  struct stat stream {};
  if (fstat(descriptor, &stream) != 0) {
    return;
  }
  isSocket = S_ISSOCK(stream.st_mode);
  if (S_ISFIFO(stream.st_mode) || isatty(descriptor) == 1) {
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    const int own = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    descriptor = own != -1 ? own : descriptor;
  }
}

void CStream::Write(std::string_view text) {
  const CLockGuard guard(lock);
  if (isCut && !WriteWhole("\n")) {
    return;
  }
  isCut = false;
  isStalled = !WriteWhole(text);
}

// False when the stream does not take all of it.
bool CStream::WriteWhole(std::string_view text) {
  const size_t whole = text.size();
  while (!text.empty()) {
    const ssize_t written = TryWrite(text);
    if (written > 0) {
      text.remove_prefix(static_cast<size_t>(written));
    } else if (written == 0 || (errno != EINTR && (errno != EAGAIN || !BecomesWritable()))) {
      isCut = isCut || text.size() != whole;
      return false;
    }
  }
  return true;
}

ssize_t CStream::TryWrite(std::string_view text) const {
  return isSocket ? send(descriptor, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL)
                  : write(descriptor, text.data(), text.size());
}

bool CStream::BecomesWritable() const {
  pollfd stream = {descriptor, POLLOUT, 0};
  return !isStalled && poll(&stream, 1, kPatienceMilliseconds) == 1;
}

// Made before main, so that they outlive whatever writes on the way out.
CStream output(STDOUT_FILENO);
CStream error(STDERR_FILENO);

}  // namespace

void WriteStandardOutput(std::string_view text) { output.Write(text); }

void WriteStandardError(std::string_view text) { error.Write(text); }

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
