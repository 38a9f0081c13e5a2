// SPDX-License-Identifier: MIT
#include "log/LogStream.h"

#include <utility>
#include <vector>

#include "Input.h"
#include "Tool.h"
#include "log/JournalEntry.h"

namespace {

// A line of the log has 4096 bytes at most, one of received bytes some thousand. What is longer is
// given in pieces.
constexpr size_t kLongestLine = 65536;

class Lines {
 public:
  void Add(std::string_view bytes, const LogStream::Taker& taker) {
    text += bytes;
    size_t begin = 0;
    for (size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
      taker(RecordOf(std::string_view(text).substr(begin, end - begin)));
    }
    text.erase(0, begin);
    if (text.size() > kLongestLine) {
      Finish(taker);
    }
  }

  // The last line, where its end is missing.
  void Finish(const LogStream::Taker& taker) {
    if (!text.empty()) {
      taker(RecordOf(std::exchange(text, {})));
    }
  }

 private:
  std::string text;
};

// Source: Input or Tool.
template <typename Source>
class LinesOf : public LogStream {
 public:
  template <typename... Arguments>
  explicit LinesOf(Arguments&&... arguments) : source(std::forward<Arguments>(arguments)...) {}

  int Descriptor() const override { return source.Descriptor(); }

  bool Read(const Taker& taker) override {
    const std::string piece = source.Read();
    if (piece.empty()) {
      lines.Finish(taker);
      return false;
    }
    lines.Add(piece, taker);
    return true;
  }

 private:
  Source source;
  Lines lines;
};

class Journal : public LogStream {
 public:
  explicit Journal(std::vector<std::string> command)
      : journalctl(std::move(command), Tool::Use::kRead) {}

  int Descriptor() const override { return journalctl.Descriptor(); }

  bool Read(const Taker& taker) override {
    const std::string piece = journalctl.Read();
    entries.Add(piece);
    while (const auto entry = entries.Next()) {
      taker(RecordOf(*entry));
    }
    return !piece.empty();
  }

 private:
  Tool journalctl;
  JournalExport entries;
};

}  // namespace

std::unique_ptr<LogStream> LogOfFile(const std::string& path, bool follow) {
  auto file = std::make_unique<LinesOf<Input>>(path);
  if (!follow || path == "-") {
    return file;
  }
  // Behind "./" a name is no option, and none of tail's own words.
  const std::string name = path.starts_with('/') ? path : "./" + path;
  return std::make_unique<LinesOf<Tool>>(std::vector<std::string>{"tail", "-n", "+1", "-F", name},
                                         Tool::Use::kRead);
}

std::unique_ptr<LogStream> LogOfUnit(const std::string& unit, bool follow) {
  std::vector<std::string> command = {
      "journalctl", "--quiet", "--unit=" + unit, "--output=export",
      "--output-fields=MESSAGE,PRIORITY,SYSLOG_IDENTIFIER,_TRANSPORT"};
  if (follow) {
    command.insert(command.end(), {"--follow", "--lines=all"});
  }
  return std::make_unique<Journal>(std::move(command));
}
