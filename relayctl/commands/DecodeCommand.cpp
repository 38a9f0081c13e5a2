// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <memory>
#include <vector>

#include "CommandLine.h"
#include "ExitStatus.h"
#include "Input.h"
#include "relay/Recording.h"
#include "relay/Text.h"
#include "show/Explain.h"
#include "show/Output.h"

namespace {

using relay::Direction;

struct Options {
  std::vector<std::string> hex;
  std::string file;
  std::string direction = "guess";
  bool brief = false;
};

class Decoder {
 public:
  Decoder(const CommonOptions& commonOptions, const Options& commandOptions)
      : common(commonOptions), options(commandOptions), isColored(MayColor(STDOUT_FILENO)) {}

  // Whether all were well-formed packets.
  bool AreWellFormed() const { return allWell; }

  // A stream of packets in one direction, cut by their lengths.
  void DecodeStream(std::string_view bytes, std::optional<Direction> direction) {
    relay::PacketCutter cutter;
    cutter.Add(bytes);
    try {
      while (const auto packet = cutter.Next()) {
        Show(*packet, direction);
      }
    } catch (const relay::Error&) {
      // A length that leads nowhere: the rest is shown as the one thing it is.
    }
    if (!cutter.Rest().empty()) {
      Show(cutter.Rest(), direction);
    }
  }

  // Lines of a recording, or of hex, each with > or < in front where it tells the direction, and
  // with a remark behind # or ; where it has one.
  void DecodeText(std::string_view text, const std::string& name) {
    std::chrono::microseconds time{0};
    size_t number = 0;
    while (!text.empty()) {
      const size_t end = std::min(text.find('\n'), text.size());
      ++number;
      try {
        DecodeLine(text.substr(0, end), time);
      } catch (const relay::Error& error) {
        throw relay::Error(error.Kind(), name + ":" + std::to_string(number) + ": " + error.what());
      }
      text.remove_prefix(std::min(end + 1, text.size()));
    }
  }

  std::optional<Direction> Given() const {
    if (options.direction == "guess") {
      return std::nullopt;
    }
    return options.direction == "to" ? Direction::kToService : Direction::kFromService;
  }

 private:
  void DecodeLine(std::string_view line, std::chrono::microseconds& time) {
    const size_t begin = line.find_first_not_of(" \t\r");
    if (begin == std::string_view::npos || line[begin] == '#' || line[begin] == ';') {
      return;
    }
    line.remove_prefix(begin);
    const bool hasDirection = line[0] == '>' || line[0] == '<';
    if (!hasDirection && IsRecorded(line)) {
      if (const auto event = relay::FromLine(line, time)) {
        time = event->time;
        if (event->IsPacket()) {
          Show(event->ToPacket(), event->direction);
        }
      }
      return;
    }
    line = line.substr(0, std::min(line.find_first_of("#;"), line.size()));
    const std::optional<Direction> direction = !hasDirection    ? Given()
                                               : line[0] == '>' ? Direction::kToService
                                                                : Direction::kFromService;
    DecodeStream(relay::FromHex(line.substr(hasDirection ? 1 : 0)), direction);
  }

  // A time, and a direction behind it.
  static bool IsRecorded(std::string_view line) {
    const size_t blank = line.find_first_of(" \t");
    const size_t next =
        blank == std::string_view::npos ? blank : line.find_first_not_of(" \t", blank);
    return next != std::string_view::npos &&
           std::string_view("<>!").find(line[next]) != std::string_view::npos;
  }

  void Show(std::string_view bytes, std::optional<Direction> given) {
    const Direction direction = given ? *given : GuessDirection(bytes);
    allWell = allWell && relay::ParsePacket(bytes, direction).problem.empty();
    PrintLine(common.json ? ExplainPacketAsJson(bytes, direction)
                          : ExplainPacket(bytes, direction, !options.brief, isColored));
  }

  const CommonOptions& common;
  const Options& options;
  const bool isColored;
  bool allWell = true;
};

int Decode(const CommonOptions& common, const Options& options) {
  if (!options.hex.empty() && !options.file.empty()) {
    throw relay::Error(relay::ErrorKind::kUsage, "decode: give HEX or --file, not both");
  }
  Decoder decoder(common, options);
  if (!options.hex.empty()) {
    std::string bytes;
    for (const std::string& part : options.hex) {
      bytes += relay::FromHex(part);
    }
    decoder.DecodeStream(bytes, decoder.Given());
  } else {
    const std::string path = options.file.empty() ? "-" : options.file;
    decoder.DecodeText(ReadAll(path), path == "-" ? "standard input" : relay::Escape(path));
  }
  return decoder.AreWellFormed() ? kExitDone : kExitNonsense;
}

void Add(SubCommand& command, const CommonOptions& common) {
  const auto options = std::make_shared<Options>();
  command.Arguments("HEX", options->hex, "Packets, one behind the other; else standard input",
                    false);
  command.Option("-f,--file", options->file, "FILE",
                 "Read a recording, or lines of hex with > or < in front; - is standard input");
  command.Choice("--direction", options->direction, {"guess", "to", "from"},
                 "Whether hex without > or < goes to the service or comes from it");
  command.Flag("--brief", options->brief, "One line for each packet, without its fields");
  command.Runs([&common, options] { return Decode(common, *options); });
}

const Registration kRegistration("decode", "Explain packets given as hex or as a recording", Add);

}  // namespace
