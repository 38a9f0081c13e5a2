// SPDX-License-Identifier: MIT
#include "libKXLogger/StandardError.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>

#include "libKXLogger/EnvironmentText.h"
#include "libKXLogger/WriteWhole.h"

namespace kxlogger {
namespace {

// Milliseconds that a reader may be slow. Whoever has not read for so long costs no further wait
// until the stream takes lines again: a log that nobody reads must not stop the service.
constexpr int kPatience = 1000;

constinit std::atomic<bool> isStalled = false;

// A line is short enough for a pipe to take it whole, or to say before that it cannot.
bool BecomesWritable(int stream, int patience) {
  pollfd entry = {stream, POLLOUT, 0};
  return poll(&entry, 1, patience) == 1;
}

constinit EnvironmentText journalStream("JOURNAL_STREAM");

bool IsJournal(int stream) {
  const std::string_view named = journalStream.Get();
  struct stat status = {};
  return !named.empty() && fstat(stream, &status) == 0 &&
         NamesStream(named, status.st_dev, status.st_ino);
}

}  // namespace

void WriteStandardError(const LogRecord& record) {
  bool isJournal = IsJournal(STDERR_FILENO);
  int stream = STDERR_FILENO;
  if (!isJournal && IsJournal(STDOUT_FILENO)) {
    isJournal = true;
    stream = STDOUT_FILENO;
  }
  isStalled = !BecomesWritable(stream, isStalled ? 0 : kPatience);
  if (isStalled) {
    return;
  }
  std::array<char, kLineSize> buffer;
  const std::string_view prefix = isJournal ? JournalPrefix(record.level) : "";
  const std::size_t size = ComposeLine(buffer, prefix, record);
  static_cast<void>(WriteWhole(stream, {buffer.data(), size}, kPatience));
}

}  // namespace kxlogger
