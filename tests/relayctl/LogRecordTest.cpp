// SPDX-License-Identifier: MIT
// Lines of the service as records, and the sentences that explain them.
#include <gtest/gtest.h>

#include <sstream>

#include "e2e/support/Workplace.h"
#include "log/JournalEntry.h"
#include "log/KnownLines.h"
#include "log/LogView.h"
#include "relay/Error.h"

namespace {

using namespace std::string_literals;

// "EVENT LEVEL SOURCE DEVICE", what is not there as a dash.
std::string Summary(const LogRecord& record) {
  const auto part = [](std::string_view text) { return text.empty() ? "-" : std::string(text); };
  return part(record.known != nullptr ? record.known->event : "") + " " +
         (record.severity ? WordOf(*record.severity) : "-") + " " + part(record.source) + " " +
         part(record.device);
}

std::string Summary(const std::string& line) { return Summary(RecordOf(line)); }

// A log line of the service, from the file and line.
std::string LogLine(const std::string& rest) { return "2026-11-21T02:50:26.668817Z " + rest; }

TEST(LogRecordTest, HasThePartsOfALogLine) {
  const LogRecord record = RecordOf(LogLine(
      "1 SerialPortHandler SerialPort.cpp:45 4 Cannot open serial device. [Port /dev/a b]"));
  ASSERT_TRUE(record.time);
  EXPECT_EQ("2026-11-21T02:50:26.668817Z", IsoText(*record.time));
  EXPECT_EQ("SerialPortHandler", record.module);
  EXPECT_EQ("Cannot open serial device. [Port /dev/a b]", record.what);
  EXPECT_EQ("not-opened error SerialPort.cpp:45 /dev/a b", Summary(record));
}

struct LineCase {
  const char* line;
  const char* summary;
};

constexpr LineCase kLines[] = {
    {"2026-11-21T02:50:26.668817Z 2 module a.cpp:1 4 text", "- warning a.cpp:1 -"},
    {"2026-11-21T02:50:26.668817Z 3 SerialPortHandler other.cpp:1 4 request stop.",
     "- progress other.cpp:1 -"},
    {"2026-11-21T02:50:26.668817Z 1 SerialPortHandler SerialPortHandler.cpp:1 4 request stop.",
     "- error SerialPortHandler.cpp:1 -"},
    {"2026-11-21T02:50:26.668817Z 3 SerialPortHandler SerialPortHandler.cpp:1 4 request stop. x",
     "- progress SerialPortHandler.cpp:1 -"},
    {"2026-02-30T02:50:26.668817Z 3 SerialPortHandler SerialPortHandler.cpp:1 4 x", "- - - -"},
    {"2026-02-20T24:50:26.668817Z 3 SerialPortHandler SerialPortHandler.cpp:1 4 x", "- - - -"},
    {"2026-11-21T02:50:26.668817Z x SerialPortHandler SerialPortHandler.cpp:1 4 x", "- - - -"},
    {"2026-11-21T02:50:26.668817Z 3 SerialPortHandler SerialPortHandler.cpp: 4 x", "- - - -"},
    {"2026-11-21T02:50:26.668817Z 3 SerialPortHandler", "- - - -"},
    {"", "- - - -"},
    {"2026-11-21T02:50:26.668817Z 1 SerialPortHandler SerialPort.cpp:9 4 "
     "Cannot open serial device. [Port ]",
     "no-device error SerialPort.cpp:9 -"},
    {"2026-11-21T02:50:26.668817Z 1 libvost Libvost.cpp:9 4 /etc/vost.conf:3: section given twice",
     "bad-configuration error Libvost.cpp:9 -"},
    {"2026-11-21T02:50:26.668817Z 1 libvost Libvost.cpp:9 4 /etc/vost.conf: Permission denied",
     "no-configuration error Libvost.cpp:9 -"},
    {"2026-11-21T02:50:26.668817Z 1 libKXLogger LogFile.cpp:9 4 /log: cannot be written, lines go "
     "to standard error: No space left on device",
     "log-not-written error LogFile.cpp:9 -"},
    {"OPEN[/dev/ttyS2]", "device-open progress standard output /dev/ttyS2"},
    {"OPEN[]", "- - - -"},
    {"(/dev/ttyUSB0)port close", "device-closed error standard output /dev/ttyUSB0"},
    {"Received(2):41 42 ", "received debug standard error -"},
    {"  what():  std::bad_alloc", "aborted fatal standard error -"},
};

TEST(LogRecordTest, TellsWhatIsKnownAndNoMore) {
  for (const LineCase& row : kLines) {
    EXPECT_EQ(row.summary, Summary(row.line)) << row.line;
    EXPECT_TRUE(std::string(row.line).ends_with(RecordOf(row.line).what)) << row.line;
  }
}

// The rows of the two tables of docs/operations.md, as they follow from what relayctl knows.
std::string Row(const KnownLine& known) {
  std::string forms;
  for (const char character : known.forms) {
    forms += character == '{' || character == '}' ? ""
             : character == '|'                   ? "`, `"
                                                  : std::string(1, character);
  }
  const bool isLogLine = !known.module.empty();
  std::string row = "| ";
  if (isLogLine) {
    row += std::to_string(static_cast<int>(known.severity)) + " ";
    row += known.module == "SerialPortHandler" ? "" : std::string(known.module) + ": ";
  }
  row += std::string(known.file) + " | `" + forms + "` | " + std::string(known.means) + " |";
  return !isLogLine ? row : row + (known.toDo.empty() ? "" : " " + std::string(known.toDo)) + " |";
}

TEST(KnownLinesTest, AreTheTablesOfTheManual) {
  std::string expected;
  for (const KnownLine& known : KnownLines()) {
    expected += Row(known) + "\n";
  }
  const std::string page = workplace::ReadWhole(SPH_OPERATIONS);
  const size_t begin = page.find("\n## Log lines\n");
  std::istringstream text(page.substr(begin, page.find("\n## Under a supervisor\n") - begin));
  std::string rows;
  for (std::string line; std::getline(text, line);) {
    const bool isRow = line.starts_with("| ") && !line.starts_with("| Level, file |") &&
                       !line.starts_with("| Stream |");
    rows += isRow ? line + "\n" : "";
  }
  EXPECT_EQ(expected, rows);
}

JournalEntry EntryOf(const std::string& message, const std::string& transport,
                     const std::string& priority) {
  return {{"MESSAGE", message},
          {"PRIORITY", priority},
          {"SYSLOG_IDENTIFIER", "who"},
          {"_TRANSPORT", transport},
          {"__REALTIME_TIMESTAMP", "1795229426668817"}};
}

TEST(JournalEntryTest, GivesAConsoleLineItsTime) {
  const LogRecord record = RecordOf(EntryOf("OPEN[/dev/ttyS2]", "stdout", "6"));
  EXPECT_EQ("device-open progress standard output /dev/ttyS2", Summary(record));
  ASSERT_TRUE(record.time);
  EXPECT_EQ("2026-11-21T02:50:26.668817Z", IsoText(*record.time));
}

TEST(JournalEntryTest, TakesWhatALineTellsItselfFirst) {
  const LogRecord record =
      RecordOf(EntryOf("2001-01-01T00:00:00.000001Z 3 SerialPortHandler SerialPortHandler.cpp:1 4 "
                       "request stop.",
                       "stdout", "3"));
  EXPECT_EQ("stop-requested progress SerialPortHandler.cpp:1 -", Summary(record));
  EXPECT_EQ("2001-01-01T00:00:00.000001Z", IsoText(record.time.value()));
}

TEST(JournalEntryTest, DoesNotTakeAnothersWordsForTheServices) {
  EXPECT_EQ("- warning who -", Summary(RecordOf(EntryOf("OPEN[/dev/ttyS2]", "journal", "4"))));
  EXPECT_EQ("- fatal who -", Summary(RecordOf(EntryOf("x", "stdout", "0"))));
  EXPECT_EQ("- - who -", Summary(RecordOf(EntryOf("x", "stdout", "8"))));
}

std::string Entries(JournalExport& journal) {
  std::string all;
  while (const auto entry = journal.Next()) {
    all += entry->at("MESSAGE") + ";";
  }
  return all;
}

TEST(JournalExportTest, IsCutIntoEntriesWhereverItsPiecesEnd) {
  const std::string text = "__CURSOR=a\nMESSAGE=one\n\nMESSAGE\n\3\0\0\0\0\0\0\0a\nb\nX=\n\n"s;
  for (size_t cut = 0; cut <= text.size(); ++cut) {
    JournalExport journal;
    journal.Add(text.substr(0, cut));
    const std::string first = Entries(journal);
    journal.Add(text.substr(cut));
    EXPECT_EQ("one;a\nb;", first + Entries(journal)) << cut;
  }
}

TEST(JournalExportTest, RefusesWhatIsNone) {
  for (const std::string_view text : {std::string_view("M\n\xFF\xFF\xFF\xFF\0\0\0\0", 10),
                                      std::string_view("M\n\1\0\0\0\0\0\0\0ab", 12)}) {
    JournalExport journal;
    journal.Add(text);
    EXPECT_THROW((void)journal.Next(), relay::Error);
  }
}

TEST(LogViewTest, ShowsBytesThatAreNoTextSafely) {
  const LogRecord record = RecordOf("\x1B]0;x\a \xFF \xC2\x9B[2J \xC3\xA9\x7F");
  EXPECT_EQ("- -        \\e]0;x\\a \\xFF \\xC2\\x9B[2J \xC3\xA9\\x7F",
            ShowRecord(record, true, false));
  EXPECT_EQ(
      "{\"event\":\"unknown\",\"what\":\"\\u001B]0;x\\u0007 \xEF\xBF\xBD \xC2\x9B[2J "
      "\xC3\xA9\\u007F\"}",
      ShowRecordAsJson(record));
}

}  // namespace
