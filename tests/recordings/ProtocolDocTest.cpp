// SPDX-License-Identifier: MIT
// The examples of docs/protocol.md: "packets" stand for themselves, "refused" ones and each
// "conversation" are played against the real service. Their lines are
//
//   > HEX  # words    the relay service sends a packet
//   < HEX  # words    the service sends a packet
//   ;; words          an instruction, as in a recording
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "protocol/CommandPacket.h"
#include "protocol/PacketBuilder.h"
#include "recordings/Examples.h"
#include "recordings/Player.h"
#include "relay/Text.h"

namespace {

using relay::Direction;

const std::regex kPacketLine("([<>]) ([0-9A-F ]+[0-9A-F]) +# (.+)");
const std::regex kLooksLikeAPacket("\\s*[<>]\\s*[0-9A-Fa-f]{2}.*");

struct Step {
  std::string line;
  std::string words;  // empty: an instruction
  Direction direction = Direction::kToService;
  std::string bytes;

  const uint8_t* Data() const { return reinterpret_cast<const uint8_t*>(bytes.data()); }
  CommandPacket AsCommand() const { return {Data(), static_cast<uint32_t>(bytes.size())}; }
};

std::vector<std::string> LinesOf(const Example& example) {
  std::vector<std::string> lines;
  std::istringstream text(example.text);
  for (std::string line; std::getline(text, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::vector<Step> StepsOf(const Example& example) {
  std::vector<Step> steps;
  for (const std::string& line : LinesOf(example)) {
    std::smatch part;
    if (std::regex_match(line, part, kPacketLine)) {
      const bool isCommand = part[1] == ">";
      steps.push_back({line, part[3], isCommand ? Direction::kToService : Direction::kFromService,
                       relay::FromHex(part.str(2))});
    } else {
      EXPECT_TRUE(line.starts_with(";; ") && example.kind == "conversation") << line;
      steps.push_back({line, "", Direction::kToService, ""});
    }
  }
  return steps;
}

std::vector<Example> OfKind(const std::string& kind) {
  std::vector<Example> examples = ReadExamples(SPH_PROTOCOL_DOCUMENT);
  std::erase_if(examples, [&kind](const Example& example) { return example.kind != kind; });
  EXPECT_FALSE(examples.empty()) << kind;
  return examples;
}

// What the service's own builder makes of a packet; `command` is what a reply answers.
std::string Built(const relay::Packet& packet, const Step& command) {
  const relay::Port& port = packet.port;
  CPacketBuilder builder = packet.number       ? CPacketBuilder(command.AsCommand())
                           : port.IsNumbered() ? CPacketBuilder(4, port.vendorId, port.productId)
                                               : CPacketBuilder(4, port.name);
  const std::string data = packet.Data();
  EXPECT_TRUE(packet.number ? builder.SetStatus(*packet.number)
                            : builder.AddBlock(reinterpret_cast<const uint8_t*>(data.data()), 2,
                                               static_cast<uint16_t>(data.size())));
  return {builder.Bytes().begin(), builder.Bytes().end()};
}

// The words may leave out the explanation of what they say, and go on in brackets.
void ExpectWords(const Step& step, const std::string& explained) {
  const std::string said = step.words.substr(0, step.words.find(" ("));
  EXPECT_TRUE(explained.starts_with(said) &&
              (explained + ":").find_first_of(",:", said.size()) == said.size())
      << step.line << "\nis: " << explained;
}

void ExpectWords(const Step& step, bool isRefused) {
  const relay::ParsedPacket parsed = relay::ParsePacket(step.bytes, step.direction);
  EXPECT_EQ(isRefused, !parsed.problem.empty()) << step.line << "\n" << parsed.problem;
  if (step.direction == Direction::kToService) {
    EXPECT_EQ(isRefused, !step.AsCommand().parsedOk) << step.line;
  }
  EXPECT_EQ(step.bytes.size(), size_t{step.Data()[0]} * 256 + step.Data()[1]) << step.line;
  if (!isRefused) {
    ExpectWords(step, Describe(parsed.packet, step.direction));
  }
}

std::string Recorded(const Step& step) {
  return step.words.empty() ? step.line
                            : relay::ToLine(relay::RecordPacket({}, step.direction, step.bytes));
}

TEST(ProtocolDocTest, NoPacketStandsOutsideOfAnExample) {
  for (const Example& block : ReadExamples(SPH_PROTOCOL_DOCUMENT)) {
    if (block.kind.empty() || block.kind == "text") {
      for (const std::string& line : LinesOf(block)) {
        EXPECT_FALSE(std::regex_match(line, kLooksLikeAPacket)) << line;
      }
    } else {
      EXPECT_TRUE(block.kind == "packets" || block.kind == "refused" ||
                  block.kind == "conversation")
          << block.kind;
    }
  }
}

TEST(ProtocolDocTest, EachPacketIsWhatItsWordsSay) {
  for (const Example& example : OfKind("packets")) {
    Step last;
    for (const Step& step : StepsOf(example)) {
      ExpectWords(step, false);
      if (step.direction == Direction::kFromService) {
        const relay::ParsedPacket parsed = relay::ParsePacket(step.bytes, step.direction);
        EXPECT_EQ(step.bytes, Built(parsed.packet, last)) << step.line;
      }
      last = step;
    }
  }
}

TEST(ProtocolDocTest, EachRefusedPacketIsRefused) {
  for (const Example& example : OfKind("refused")) {
    std::string recording;
    for (const Step& step : StepsOf(example)) {
      ExpectWords(step, true);
      recording += Recorded(step) + "\n;; log 1 Command parse failed.\n";
    }
    EXPECT_EQ("", Player().Play(recording, example.name));
  }
}

TEST(ProtocolDocTest, EachConversationIsWhatTheServiceDoes) {
  for (const Example& example : OfKind("conversation")) {
    std::string recording;
    for (const Step& step : StepsOf(example)) {
      if (!step.words.empty()) {
        ExpectWords(step, step.words.starts_with("refused"));
      }
      recording += Recorded(step) + "\n";
    }
    EXPECT_EQ("", Player().Play(recording, example.name));
  }
}

}  // namespace
