// SPDX-License-Identifier: MIT
// libKXLogger for machines that have none of their own.
//
// Environment: KXLOGGER_FILE names the file to append to; when it is unset or empty the lines go to
// standard error, and so do those that the file does not take. When JOURNAL_STREAM names standard
// output and not standard error, they go to standard output instead.
//
// The whole library can run inside a signal handler, at any point of any thread: nothing in it
// locks, allocates or uses the C library's streams, and `errno` is kept.
#include "platform/KXLogger.h"

#include <pthread.h>

#include <cerrno>
#include <ctime>

#include "libKXLogger/EnvironmentText.h"
#include "libKXLogger/LogFile.h"
#include "libKXLogger/StandardError.h"

namespace {

constinit kxlogger::EnvironmentText logFilePath("KXLOGGER_FILE");
constinit kxlogger::LogFile logFile;

class ErrnoKeeper {
 public:
  ErrnoKeeper() = default;
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;
  ~ErrnoKeeper() { errno = kept; }

 private:
  int kept = errno;
};

// `write` and `open` are where a thread can be cancelled. Inside this library that would leave a
// line unfinished or a descriptor behind, so the request waits for the caller's next such point.
class CancellationDelay {
 public:
  CancellationDelay() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous); }
  CancellationDelay(const CancellationDelay&) = delete;
  CancellationDelay& operator=(const CancellationDelay&) = delete;
  ~CancellationDelay() { pthread_setcancelstate(previous, nullptr); }

 private:
  int previous = PTHREAD_CANCEL_ENABLE;
};

std::string_view Text(const char* text) { return text != nullptr ? text : ""; }

kxlogger::LogTime Now() {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return kxlogger::TimeOf(now);
}

}  // namespace

void writelog(const char* module, const char* file, const char* line, const char* tag,
              const char* message, int level) {
  const ErrnoKeeper errnoKeeper;
  const CancellationDelay cancellationDelay;
  const kxlogger::LogRecord record = {Now(),      level,     Text(module), Text(file),
                                      Text(line), Text(tag), Text(message)};
  const char* path = logFilePath.Get();
  if (*path == '\0' || !logFile.Append(path, record)) {
    kxlogger::WriteStandardError(record);
  }
}
