// SPDX-License-Identifier: MIT
#include "libKXLogger/LogFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "libKXLogger/StandardError.h"
#include "libKXLogger/WriteWhole.h"

#define KXLOGGER_TEXT_OF(number) #number
#define KXLOGGER_NUMBER_TEXT(number) KXLOGGER_TEXT_OF(number)

namespace kxlogger {
namespace {

constexpr mode_t kMode = 0644;
constexpr int kFirstFreeDescriptor = STDERR_FILENO + 1;

// O_NONBLOCK: a FIFO that nobody reads must not stop the caller. O_NOCTTY: a terminal must not
// become the service's own, whose hang-up would end it.
int OpenForAppending(const char* path) {
  return open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, kMode);
}

// A process may have been started without standard streams. What others print there must not reach
// the log.
int MoveAboveStandardStreams(int descriptor) {
  if (descriptor < 0 || descriptor >= kFirstFreeDescriptor) {
    return descriptor;
  }
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, kFirstFreeDescriptor);
  const int error = errno;
  close(descriptor);
  errno = error;
  return moved;
}

bool LeadsTo(const char* path, int descriptor) {
  struct stat named = {};
  struct stat held = {};
  return stat(path, &named) == 0 && fstat(descriptor, &held) == 0 && named.st_dev == held.st_dev &&
         named.st_ino == held.st_ino;
}

void Report(const char* path, LogTime time, int error) {
  std::array<char, kLineSize> message;
  std::size_t size = 0;
  const char* reason = strerrordesc_np(error);  // the one form that takes no lock
  for (const std::string_view part :
       {std::string_view(path),
        std::string_view(": cannot be written, lines go to standard error: "),
        std::string_view(reason != nullptr ? reason : "unknown error")}) {
    const std::size_t count = std::min(part.size(), message.size() - size);
    std::copy_n(part.begin(), count, message.data() + size);
    size += count;
  }
  WriteStandardError({time, 1, "libKXLogger", "LogFile.cpp", KXLOGGER_NUMBER_TEXT(__LINE__), "4",
                      std::string_view(message.data(), size)});
}

}  // namespace

bool LogFile::Append(const char* path, const LogRecord& record) {
  int error = MakeReady(path, record.time.second);
  if (error == 0) {
    error = Write(descriptor.load(), record);
  }
  if (reported.exchange(error) != error && error != 0) {
    Report(path, record.time, error);
  }
  return error == 0;
}

int LogFile::MakeReady(const char* path, std::chrono::sys_seconds now) {
  const int current = descriptor.load();
  if (current < 0) {
    return OpenFirst(path);
  }
  const auto second = static_cast<std::uint32_t>(now.time_since_epoch().count());
  if (checkedSecond.exchange(second) == second && !lost.load()) {
    return 0;
  }
  const int error = LeadsTo(path, current) ? 0 : Replace(current, path);
  lost.store(error != 0);
  return error;
}

int LogFile::OpenFirst(const char* path) {
  const int opened = MoveAboveStandardStreams(OpenForAppending(path));
  if (opened < 0) {
    return errno;
  }
  int expected = -1;
  if (!descriptor.compare_exchange_strong(expected, opened)) {
    close(opened);  // another thread, or a signal handler, was faster
  }
  return 0;
}

// The new file takes the old one's number in one step: a thread that is about to write to this
// number finds the old file or the new one there, and never a stranger's.
int LogFile::Replace(int current, const char* path) {
  const int opened = OpenForAppending(path);
  if (opened < 0) {
    return errno;
  }
  const int error = dup3(opened, current, O_CLOEXEC) < 0 ? errno : 0;
  close(opened);
  if (error == 0) {
    torn.store(false);
  }
  return error;
}

// On a full disk a line may end in its midst. The next one that succeeds starts on a line of its
// own.
int LogFile::Write(int current, const LogRecord& record) {
  std::array<char, kLineSize> buffer;
  const bool wasTorn = torn.exchange(false);
  const std::size_t size = ComposeLine(buffer, wasTorn ? "\n" : "", record);
  const WriteOutcome outcome = WriteWhole(current, {buffer.data(), size});
  if (outcome.error != 0 && (wasTorn || outcome.written > 0)) {
    torn.store(true);
  }
  return outcome.error;
}

}  // namespace kxlogger
