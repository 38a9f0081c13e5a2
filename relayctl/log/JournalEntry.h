// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "log/LogRecord.h"

using JournalEntry = std::map<std::string, std::string, std::less<>>;

// What "journalctl --output=export" prints, cut into entries. It keeps bytes of any value.
class JournalExport {
 public:
  void Add(std::string_view bytes) { text += bytes; }

  // Nothing while the next entry is not whole. Throws kNonsense when what came is no journal.
  std::optional<JournalEntry> Next();

 private:
  bool TakeField(std::string_view line);

  std::string text;
  size_t used = 0;  // of `text`
  JournalEntry entry;
};

// The service's line, or what the system says about the service. What the line itself tells counts
// before what the journal adds.
LogRecord RecordOf(const JournalEntry& entry);
