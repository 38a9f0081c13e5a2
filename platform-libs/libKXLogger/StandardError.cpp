// SPDX-License-Identifier: MIT
#include "libKXLogger/StandardError.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "Linux/StreamWriter.h"
#include "libKXLogger/EnvironmentText.h"

namespace kxlogger {
namespace {

// Milliseconds that a line may wait for a reader who reads slowly. A line may come from the handler
// of a stop signal, and the stop must not take long.
constexpr int kLongestWait = 5000;

constinit CStreamWriter standardOutput(STDOUT_FILENO, kLongestWait);
constinit CStreamWriter standardError(STDERR_FILENO, kLongestWait);

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
  CStreamWriter* writer = &standardError;
  if (!isJournal && IsJournal(STDOUT_FILENO)) {
    isJournal = true;
    writer = &standardOutput;
  }
  std::array<char, kLineSize> buffer;
  const std::string_view prefix = isJournal ? JournalPrefix(record.level) : "";
  const std::size_t size = ComposeLine(buffer, prefix, record);
  writer->Unblock();
  static_cast<void>(writer->Write({buffer.data(), size}));
}

}  // namespace kxlogger
