// SPDX-License-Identifier: MIT
#include "Linux/StreamWriter.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "Linux/TimedWrite.h"

namespace {

// Milliseconds that a reader may not read. A pseudo-terminal does not show how much waits in it,
// and tells of room only when its reader has taken four kilobytes: a slow reader is known later
// there.
constexpr int kPatience = 1000;
constexpr int kBlindPatience = 3000;

constexpr int kLongestLastWait = 5000;
constexpr int kLookInterval = 100;
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

// How long one text waits: until nobody has read for a while, or it is too long in all.
struct CStreamWriter::Wait {
  explicit Wait(bool last) : isLast(last) {}

  void FoundNoRoom(int queuedNow) {
    if (began == kNotYet) {
      began = lastRead = Now();
      queued = queuedNow;
    }
  }

  void Looked(int queuedNow) {
    if (queuedNow < queued) {
      lastRead = Now();
    }
    queued = queuedNow;
  }

  void Wrote() {
    hadRoom = false;
    if (began != kNotYet) {
      lastRead = Now();
    }
  }

  bool IsOver(int limit) const {
    const std::int64_t now = Now();
    return now - lastRead >= (queued > 0 ? kPatience : kBlindPatience) || now - began >= limit;
  }

  static constexpr std::int64_t kNotYet = 0;

  const bool isLast;
  std::int64_t began = kNotYet;     // when it first found no room
  std::int64_t lastRead = kNotYet;  // when somebody was last seen to read
  int queued = 0;                   // bytes in the stream at the last look
  bool hadRoom = false;             // so `poll` said, and then nothing could be written
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

bool CStreamWriter::Write(std::string_view text, bool isLast) {
  if (isStalled) {
    LookAfterStall();
  }
  Wait wait(isLast);
  if (isCut.exchange(false) && !WriteWhole("\n", wait)) {
    isCut = true;
    return false;
  }
  return WriteWhole(text, wait);
}

// Whoever has read since the last text found no room gets patience again.
void CStreamWriter::LookAfterStall() {
  const int queued = Queued();
  if (queued < queuedAtStall.exchange(queued)) {
    isStalled = false;
  }
}

bool CStreamWriter::WriteWhole(std::string_view text, Wait& wait) {
  const size_t whole = text.size();
  while (!text.empty()) {
    const ssize_t written = TryWrite(text);
    if (written > 0) {
      text.remove_prefix(static_cast<size_t>(written));
      wait.Wrote();
      if (isStalled && Queued() == 0) {
        isStalled = false;  // where nothing else shows that somebody has read
      }
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

// Any sign that somebody reads renews the patience: a pipe has room for a text only when its reader
// has taken a whole page.
bool CStreamWriter::WaitForRoom(Wait& wait) {
  wait.FoundNoRoom(Queued());
  if (wait.hadRoom) {  // less than the text's next character needs
    (void)poll(nullptr, 0, kRefusedPause);
  }
  pollfd entry = {own >= 0 ? own.load() : stream, POLLOUT, 0};
  do {
    wait.Looked(Queued());
    if (GivesUp(wait)) {
      return false;
    }
    wait.hadRoom = poll(&entry, 1, kLookInterval) == 1;
  } while (!wait.hadRoom);
  return true;
}

bool CStreamWriter::GivesUp(const Wait& wait) {
  if (isHurried && !wait.isLast) {
    return true;
  }
  if (!isStalled && wait.IsOver(wait.isLast ? kLongestLastWait : longestWait)) {
    queuedAtStall = wait.queued;
    isStalled = true;
  }
  return isStalled;
}

// The bytes that nobody has read yet; 0 where the stream does not show it, as a pseudo-terminal.
int CStreamWriter::Queued() const {
  int bytes = 0;
  if (ioctl(stream, TIOCOUTQ, &bytes) != 0) {
    (void)ioctl(stream, FIONREAD, &bytes);  // a pipe; of anything else, what could be read from it
  }
  return bytes;
}
