// SPDX-License-Identifier: MIT
#include "relay/Recording.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <memory>
#include <system_error>

#include "relay/Error.h"
#include "relay/Text.h"

namespace relay {

namespace {

using Kind = RecordedEvent::Kind;
using std::chrono::microseconds;

constexpr char kComment = ';';
constexpr const char* kNoPort = "-";

// Data longer than this is not shown as text behind the hex.
constexpr size_t kMostShown = 64;

struct KindWord {
  Kind kind;
  const char* word;
};
constexpr KindWord kKindWords[] = {{Kind::kOpen, "open"},
                                   {Kind::kClose, "close"},
                                   {Kind::kData, "data"},
                                   {Kind::kPacket, "packet"}};

const char* WordOf(Kind kind) {
  for (const KindWord& row : kKindWords) {
    if (row.kind == kind) {
      return row.word;
    }
  }
  return "";
}

[[noreturn]] void Refuse(const std::string& what) { throw Error(ErrorKind::kUsage, what); }

uint8_t DataBlockType(Direction direction) {
  return direction == Direction::kToService ? uint8_t{1} : kReceivedDataBlock;
}

// A name as one word that is no comment and is not taken for ids.
std::string PortWord(const Port& port) {
  std::string text;
  for (const char byte : port.name) {
    text += byte == ' ' || byte == kComment ? "\\x" + ToHex(std::string_view(&byte, 1))
                                            : Escape(std::string_view(&byte, 1));
  }
  if (port.IsNumbered()) {
    return port.Text();
  }
  const bool isMistaken = text == kNoPort || Port::FromText(text).IsNumbered();
  return isMistaken ? "\\x" + ToHex(text.substr(0, 1)) + text.substr(1) : text;
}

Port PortOf(std::string_view word) {
  const Port port = Port::FromText(word);
  return port.IsNumbered() ? port : Port{Unescape(word)};
}

std::string TimeText(microseconds time) {
  char text[40];
  (void)std::snprintf(text, sizeof text, "%lld.%06lld",
                      static_cast<long long>(time.count() / 1000000),
                      static_cast<long long>(time.count() % 1000000));
  return text;
}

// "1", "1.5", "0.000001".
microseconds TimeOf(std::string_view text) {
  constexpr size_t kDecimals = 6;
  constexpr size_t kMostDigits = 10;
  const size_t point = std::min(text.find('.'), text.size());
  const std::string whole(text.substr(0, point));
  std::string part(point < text.size() ? text.substr(point + 1) : "");
  const bool isNumber = !whole.empty() && whole.size() <= kMostDigits && part.size() <= kDecimals &&
                        (point == text.size() || !part.empty()) &&
                        (whole + part).find_first_not_of("0123456789") == std::string::npos;
  if (!isNumber) {
    Refuse(Quote(text) + " is no time in seconds");
  }
  part.resize(kDecimals, '0');
  return microseconds(std::stoll(whole) * 1000000 + std::stoll(part));
}

// Takes words, separated by blanks, from the front of a line.
class Words {
 public:
  explicit Words(std::string_view line) : rest(line) {}

  std::string_view Next() {
    SkipBlanks();
    const size_t end = std::min(rest.find_first_of(" \t"), rest.size());
    const std::string_view word = rest.substr(0, end);
    rest.remove_prefix(end);
    return word;
  }

  std::string_view Rest() {
    SkipBlanks();
    return rest;
  }

 private:
  void SkipBlanks() { rest.remove_prefix(std::min(rest.find_first_not_of(" \t\r"), rest.size())); }

  std::string_view rest;
};

std::optional<uint16_t> NumberOf(std::string_view text) {
  constexpr size_t kMostDigits = 5;
  if (text.empty()) {
    return std::nullopt;
  }
  if (text.size() > kMostDigits || text.find_first_not_of("0123456789") != std::string_view::npos ||
      std::stoul(std::string(text)) > 0xFFFF) {
    Refuse(Quote(text) + " is no number from 0 to 65535");
  }
  return static_cast<uint16_t>(std::stoul(std::string(text)));
}

Kind LinkKindOf(Words& words) {
  const std::string_view what = words.Next();
  const std::string_view state = words.Next();
  if (what != "link" || (state != "up" && state != "down") || !words.Rest().empty()) {
    Refuse("behind \"!\" stands \"link up\" or \"link down\"");
  }
  return state == "up" ? Kind::kLinkUp : Kind::kLinkDown;
}

Kind KindOf(std::string_view word) {
  for (const KindWord& row : kKindWords) {
    if (row.word == word) {
      return row.kind;
    }
  }
  Refuse(Quote(word) + " is none of open, close, data, packet");
}

void ParseEvent(Words& words, RecordedEvent& event) {
  const std::string_view port = words.Next();
  event.kind = KindOf(words.Next());
  const std::string_view rest = words.Rest();
  if ((event.kind == Kind::kPacket) != (port == kNoPort)) {
    Refuse(port == kNoPort ? "only a packet has \"-\" for a port"
                           : "a packet has \"-\" for a port");
  }
  if (event.kind == Kind::kPacket) {
    event.bytes = FromHex(rest);
    return;
  }
  event.port = PortOf(port);
  if (event.kind == Kind::kData) {
    event.bytes = FromHex(rest);
    return;
  }
  event.number = NumberOf(words.Next());
  if (!words.Rest().empty()) {
    Refuse("too much behind an open or a close");
  }
  if (event.direction == Direction::kFromService && !event.number) {
    Refuse("the reply to an open or a close has a status");
  }
}

// Throws Error(kSystem); a folder opens like a file and fails at the first read.
std::string WholeFile(const std::string& path) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rbe"),
                                                             &std::fclose);
  std::string text;
  std::array<char, 4096> piece;
  while (file) {
    const size_t size = std::fread(piece.data(), 1, piece.size(), file.get());
    if (size == 0) {
      break;
    }
    text.append(piece.data(), size);
  }
  if (!file || std::ferror(file.get()) != 0) {
    const int cause = errno;
    throw Error(ErrorKind::kSystem,
                "cannot read " + Escape(path) + ": " + std::generic_category().message(cause),
                cause);
  }
  return text;
}

}  // namespace

std::string RecordedEvent::ToPacket() const {
  if (kind == Kind::kPacket) {
    return bytes;
  }
  if (kind == Kind::kData) {
    return DataCommand(port, {{DataBlockType(direction), bytes}});
  }
  return BuildPacket(
      {static_cast<uint8_t>(kind == Kind::kOpen ? kCommandOpen : kCommandClose), port, number, {}});
}

RecordedEvent RecordPacket(microseconds time, Direction direction, std::string_view packet) {
  RecordedEvent event;
  event.time = time;
  event.direction = direction;
  const ParsedPacket parsed = ParsePacket(packet, direction);
  const std::vector<Block>& blocks = parsed.packet.blocks;
  const bool isData = parsed.packet.command == kCommandData;
  const bool isPlain =
      !isData || (blocks.size() == 1 && blocks[0].type == DataBlockType(direction));
  if (!parsed.problem.empty() || !isPlain) {
    event.kind = Kind::kPacket;
    event.bytes = packet;
    return event;
  }
  event.kind = isData                                  ? Kind::kData
               : parsed.packet.command == kCommandOpen ? Kind::kOpen
                                                       : Kind::kClose;
  event.port = parsed.packet.port;
  event.number = parsed.packet.number;
  event.bytes = parsed.packet.Data();
  return event;
}

std::string ToLine(const RecordedEvent& event) {
  std::string line = TimeText(event.time);
  if (!event.IsPacket()) {
    return line + (event.kind == Kind::kLinkUp ? " ! link up" : " ! link down");
  }
  line += event.direction == Direction::kToService ? " > " : " < ";
  line += event.kind == Kind::kPacket ? kNoPort : PortWord(event.port);
  line += std::string(" ") + WordOf(event.kind);
  if (event.number) {
    line.append(" ").append(std::to_string(*event.number));
  }
  if (!event.bytes.empty()) {
    line.append(" ").append(ToHex(event.bytes, " "));
  }
  if (event.kind == Kind::kData && event.bytes.size() <= kMostShown) {
    line.append("  ; ").append(Quote(event.bytes));
  }
  return line;
}

std::optional<RecordedEvent> FromLine(std::string_view line, microseconds previous) {
  Words words(line.substr(0, std::min(line.find(kComment), line.size())));
  const std::string_view time = words.Next();
  if (time.empty()) {
    return std::nullopt;
  }
  RecordedEvent event;
  event.time = time[0] == '+' ? previous + TimeOf(time.substr(1)) : TimeOf(time);
  if (event.time < previous) {
    Refuse("the time goes back");
  }
  const std::string_view direction = words.Next();
  if (direction == "!") {
    event.kind = LinkKindOf(words);
  } else if (direction == ">" || direction == "<") {
    event.direction = direction == ">" ? Direction::kToService : Direction::kFromService;
    ParseEvent(words, event);
  } else {
    Refuse("behind the time stands >, < or !");
  }
  return event;
}

std::string RecordingHeader(std::chrono::system_clock::time_point began) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(began);
  std::tm parts{};
  (void)gmtime_r(&seconds, &parts);
  char text[40];
  (void)std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return std::string("; relay recording 1, begun ") + text;
}

std::vector<RecordedEvent> ReadRecording(std::string_view text, const std::string& name) {
  std::vector<RecordedEvent> events;
  microseconds previous{0};
  size_t number = 0;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    ++number;
    try {
      if (const auto event = FromLine(text.substr(0, end), previous)) {
        previous = event->time;
        events.push_back(*event);
      }
    } catch (const Error& error) {
      Refuse(name + ":" + std::to_string(number) + ": " + error.what());
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return events;
}

std::vector<RecordedEvent> ReadRecordingFile(const std::string& path) {
  return ReadRecording(WholeFile(path), Escape(path));
}

}  // namespace relay
