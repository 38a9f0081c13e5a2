// SPDX-License-Identifier: MIT
#include "libKXLogger/StandardError.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "libKXLogger/EnvironmentText.h"
#include "libKXLogger/WriteWhole.h"

namespace kxlogger {
namespace {

// Someone else may have made the stream non-blocking, since it is shared with other programs. A
// reader that has stopped holds up a line no longer than this.
constexpr int kPatience = 1000;

constinit EnvironmentText journalStream("JOURNAL_STREAM");

bool IsJournal() {
  const std::string_view named = journalStream.Get();
  struct stat status = {};
  return !named.empty() && fstat(STDERR_FILENO, &status) == 0 &&
         NamesStream(named, status.st_dev, status.st_ino);
}

}  // namespace

void WriteStandardError(const LogRecord& record) {
  std::array<char, kLineSize> buffer;
  const std::string_view prefix = IsJournal() ? JournalPrefix(record.level) : "";
  const std::size_t size = ComposeLine(buffer, prefix, record);
  static_cast<void>(WriteWhole(STDERR_FILENO, {buffer.data(), size}, kPatience));
}

}  // namespace kxlogger
