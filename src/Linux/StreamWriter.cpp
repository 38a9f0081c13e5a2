// SPDX-License-Identifier: MIT
#include "Linux/StreamWriter.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "Linux/TimedWrite.h"

namespace {

constexpr int kPatience = 1000;  // milliseconds that a reader may not read
constexpr int kRefusedPause = 10;

constexpr int kFirstFreeDescriptor = STDERR_FILENO + 1;

std::int64_t Now() {
  timespec now = {};
  (void)clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

// A process may run without standard streams. What others print there must not come here.
int MoveAboveStandardStreams(int descriptor) {
  if (descriptor < 0 || descriptor >= kFirstFreeDescriptor) {
    return descriptor;
  }
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, kFirstFreeDescriptor);
  (void)close(descriptor);
  return moved;
}

// O_NOCTTY: a terminal must not become the process's own, whose hang-up would end it.
int OpenAgain(int stream) {
  char path[] = "/proc/self/fd/0";
  path[sizeof path - 2] = static_cast<char>('0' + stream);
  return MoveAboveStandardStreams(open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

}  // namespace

// How long one text waits, from its last byte that found room.
struct CStreamWriter::Wait {
  static constexpr std::int64_t kNotYet = -1;

  std::int64_t began = kNotYet;
  bool hadRoom = false;  // so `poll` said, and then nothing could be written
};

void CStreamWriter::Unblock() {
  struct stat status {};
  if (isDecided || fstat(stream, &status) != 0) {
    return;
  }
  if (S_ISSOCK(status.st_mode)) {
    way = Way::kSend;
  } else if (S_ISFIFO(status.st_mode) || isatty(stream) == 1) {
    way = OpenOwn() ? Way::kOwn : Way::kTimed;
  }
  isDecided = true;
}

// False where the system does not let us: the pipe or terminal belongs to another user, a FIFO has
// no reader at the moment, there is no /proc.
bool CStreamWriter::OpenOwn() {
  const int opened = OpenAgain(stream);
  int expected = -1;
  if (opened >= 0 && !own.compare_exchange_strong(expected, opened)) {
    (void)close(opened);  // another thread, or a signal handler, was faster
  }
  return own >= 0;
}

bool CStreamWriter::Write(std::string_view text) {
  if (isCut.exchange(false) && !WriteWhole("\n")) {
    isCut = true;
    return false;
  }
  isStalled = !WriteWhole(text);
  return !isStalled;
}

bool CStreamWriter::WriteWhole(std::string_view text) {
  Wait wait;
  const size_t whole = text.size();
  while (!text.empty()) {
    const ssize_t written = TryWrite(text);
    if (written > 0) {
      text.remove_prefix(static_cast<size_t>(written));
      wait = Wait();
    } else if (written == 0 || (errno != EINTR && (errno != EAGAIN || !WaitForRoom(wait)))) {
      isCut = isCut || text.size() != whole;
      return false;
    }
  }
  return true;
}

ssize_t CStreamWriter::TryWrite(std::string_view text) const {
  switch (way) {
    case Way::kSend:
      return send(stream, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    case Way::kOwn:
      return write(own, text.data(), text.size());
    case Way::kTimed:
      return TimedWrite(stream, text);
    case Way::kPlain:
      break;
  }
  return write(stream, text.data(), text.size());
}

bool CStreamWriter::WaitForRoom(Wait& wait) {
  if (wait.began == Wait::kNotYet) {
    wait.began = Now();
  }
  if (wait.hadRoom) {  // less than the text's next character needs
    (void)poll(nullptr, 0, kRefusedPause);
  }
  pollfd entry = {own >= 0 ? own.load() : stream, POLLOUT, 0};
  do {
    const std::int64_t rest = wait.began + kPatience - Now();
    if (isStalled || rest <= 0) {
      return false;
    }
    wait.hadRoom = poll(&entry, 1, static_cast<int>(rest)) == 1;
  } while (!wait.hadRoom);
  return true;
}
