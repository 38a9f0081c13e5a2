// SPDX-License-Identifier: MIT
// Whatever a log or the journal holds, relayctl shows each line as one that steers no terminal, and
// as JSON. Input: the first byte's lowest bit chooses between a line and the journal.
#include <string>

#include "Check.h"
#include "log/JournalEntry.h"
#include "log/LogView.h"
#include "relay/Error.h"

namespace {

void CheckRecord(const LogRecord& record) {
  const std::string line = ShowRecord(record, false, false);
  for (const char character : line) {
    const auto byte = static_cast<unsigned char>(character);
    Check(byte >= 0x20 && byte != 0x7F, "no control byte");
  }
  const std::string json = ShowRecordAsJson(record);
  Check(json.front() == '{' && json.back() == '}', "an object");
  Check(json.find('\n') == std::string::npos, "on one line");
  Check(record.what.ends_with(record.device) || record.known != nullptr, "a device is known");
  Check(!ShowRecord(record, true, true).empty(), "it is explained");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::string text(data + 1, data + size);
  if (data[0] % 2 == 0) {
    CheckRecord(RecordOf(text));
    return 0;
  }
  try {
    JournalExport journal;
    journal.Add(text.substr(0, text.size() / 2));
    for (const bool isLast : {false, true}) {
      while (const auto entry = journal.Next()) {
        CheckRecord(RecordOf(*entry));
      }
      journal.Add(isLast ? "" : text.substr(text.size() / 2));
    }
  } catch (const relay::Error&) {
    // It says what is wrong with it.
  }
  return 0;
}
