// SPDX-License-Identifier: MIT
#include "log/LogView.h"

#include "log/KnownLines.h"
#include "show/Json.h"
#include "show/Output.h"

namespace {

constexpr size_t kLevelWidth = 9;  // "progress "
constexpr const char* kIndent = "    ";

Color ColorOf(LogSeverity severity) {
  return severity <= LogSeverity::kError     ? Color::kBad
         : severity == LogSeverity::kWarning ? Color::kWarning
                                             : Color::kNone;
}

}  // namespace

std::string ShowRecord(const LogRecord& record, bool explained, bool isColored) {
  std::string level = record.severity ? WordOf(*record.severity) : "-";
  level.resize(kLevelWidth, ' ');
  const Color color = record.severity ? ColorOf(*record.severity) : Color::kNone;
  std::string text = record.time ? IsoText(*record.time) : "-";
  text = Paint(text, Color::kDim, isColored) + " " + Paint(level, color, isColored) +
         (record.source.empty() ? "" : Harmless(record.source) + ": ") + Harmless(record.what);
  if (!explained || record.known == nullptr) {
    return text;
  }
  text += "\n" + Paint(kIndent + std::string(record.known->means), Color::kDim, isColored);
  if (!record.known->toDo.empty()) {
    text +=
        "\n" + Paint(kIndent + ("-> " + std::string(record.known->toDo)), Color::kNote, isColored);
  }
  return text;
}

std::string ShowRecordAsJson(const LogRecord& record) {
  JsonLine line;
  line.Add("event", record.known != nullptr ? record.known->event : "unknown");
  if (record.time) {
    line.Add("time", IsoText(*record.time));
  }
  if (record.severity) {
    line.Add("level", WordOf(*record.severity));
  }
  const auto add = [&line](const char* key, std::string_view text) {
    if (!text.empty()) {
      line.AddText(key, text);
    }
  };
  add("module", record.module);
  add("source", record.source);
  line.AddText("what", record.what);
  add("device", record.device);
  if (record.known != nullptr) {
    add("means", record.known->means);
    add("toDo", record.known->toDo);
  }
  return line.Text();
}
