// SPDX-License-Identifier: MIT
// Every packet of the document goes through the service's own parser or builder.
#include <gtest/gtest.h>

#include <deque>
#include <iostream>
#include <memory>

#include "protocol-doc/Document.h"
#include "protocol-doc/Words.h"
#include "protocol/CommandPacket.h"
#include "protocol/PacketBuilder.h"
#include "support/Hex.h"

namespace {

std::string Hex(const std::vector<uint8_t>& bytes) { return ToHex(bytes.data(), bytes.size()); }

size_t LengthField(const std::vector<uint8_t>& bytes) {
  return bytes.size() < 2 ? 0 : static_cast<size_t>(bytes[0] * 256 + bytes[1]);
}

// The example's words may go on in brackets, or say why a packet is refused.
void ExpectWords(const std::string& expected, const Step& step) {
  const std::string rest =
      step.words.starts_with(expected) ? step.words.substr(expected.size()) : step.words;
  const bool isRemark = rest.starts_with(" (") && rest.ends_with(")");
  const bool isReason = expected == "refused" && rest.starts_with(": ");
  EXPECT_TRUE(step.words.starts_with(expected) && (rest.empty() || isRemark || isReason))
      << "line " << step.line << " says: " << step.words << "\nthe packet says: " << expected;
}

// Runs through one example.
class Walk {
 public:
  explicit Walk(bool allRefused) : everyPacketIsRefused(allRefused) {}

  void Take(const Step& step) {
    switch (step.mark) {
      case Mark::kToService:
        return TakeCommand(step);
      case Mark::kFromService:
        return TakeAnswer(step);
      case Mark::kToLine:
      case Mark::kFromLine:
        return ExpectWords(Quoted(step.bytes), step);
      case Mark::kSetUp:
      case Mark::kEnd:
        return;  // only in conversations, which are executed as a whole
    }
  }

 private:
  void TakeCommand(const Step& step) {
    auto command = std::make_unique<CommandPacket>(step.bytes.data(),
                                                   static_cast<uint32_t>(step.bytes.size()));
    EXPECT_EQ(step.bytes.size(), LengthField(step.bytes)) << "line " << step.line;
    if (everyPacketIsRefused) {
      EXPECT_FALSE(command->parsedOk) << "line " << step.line << " is not refused";
      return;
    }
    ExpectWords(Words(*command), step);
    if (command->parsedOk && command->command != 4) {
      unanswered.push_back(std::move(command));
    }
  }

  void TakeAnswer(const Step& step) {
    const std::optional<ServicePacket> packet = TakeApart(step.bytes);
    ASSERT_TRUE(packet) << "line " << step.line << ": the service sends no such packet";
    ExpectWords(Words(*packet), step);
    if (packet->command == 4) {
      return ExpectNotification(*packet, step);
    }
    ASSERT_FALSE(unanswered.empty()) << "line " << step.line << " answers no command";
    CPacketBuilder reply(*unanswered.front());
    EXPECT_TRUE(reply.SetStatus(packet->status));
    EXPECT_EQ(Hex(reply.Bytes()), Hex(step.bytes)) << "line " << step.line;
    unanswered.pop_front();
  }

  static void ExpectNotification(const ServicePacket& packet, const Step& step) {
    CPacketBuilder notification =
        packet.isNamed ? CPacketBuilder(4, packet.name) : CPacketBuilder(4, packet.id1, packet.id2);
    EXPECT_TRUE(
        notification.AddBlock(packet.data.data(), 2, static_cast<uint16_t>(packet.data.size())));
    EXPECT_EQ(Hex(notification.Bytes()), Hex(step.bytes)) << "line " << step.line;
  }

  const bool everyPacketIsRefused;
  std::deque<std::unique_ptr<CommandPacket>> unanswered;
};

TEST(ExamplesTest, HoldsNothingThatIsNotExecuted) {
  EXPECT_EQ(std::vector<std::string>{}, ReadProtocolDocument().problems);
}

TEST(ExamplesTest, HasExamplesOfEveryKind) {
  const Document document = ReadProtocolDocument();
  for (const char* const kind : {"packets", "refused", "conversation"}) {
    EXPECT_LT(0U, document.OfKind(kind).size()) << kind;
  }
}

TEST(ExamplesTest, EveryPacketIsWhatItsWordsSay) {
  const Document document = ReadProtocolDocument();
  size_t packets = 0;
  for (const Example& example : document.examples) {
    Walk walk(example.kind == "refused");
    for (const Step& step : example.steps) {
      walk.Take(step);
      packets += step.mark == Mark::kToService || step.mark == Mark::kFromService ? 1 : 0;
    }
  }
  EXPECT_LT(0U, packets);
  std::cout << packets << " packets in " << document.examples.size() << " examples executed\n";
}

TEST(ExamplesTest, OnlyConversationsHaveALineASetUpOrAnEnd) {
  for (const Example& example : ReadProtocolDocument().examples) {
    for (const Step& step : example.steps) {
      const bool isCommand = step.mark == Mark::kToService;
      const bool isPacket = isCommand || step.mark == Mark::kFromService;
      EXPECT_TRUE(example.kind == "conversation" || isCommand ||
                  (isPacket && example.kind == "packets"))
          << "line " << step.line;
    }
  }
}

// Held with the process, a conversation that leaves one out might pass: a close throws away what
// has not been read yet.
TEST(ExamplesTest, ConversationsTellEveryNotification) {
  for (const Example& example : ReadProtocolDocument().OfKind("conversation")) {
    std::vector<uint8_t> received;
    std::vector<uint8_t> notified;
    for (const Step& step : example.steps) {
      if (step.mark == Mark::kFromLine) {
        received.insert(received.end(), step.bytes.begin(), step.bytes.end());
      } else if (step.mark == Mark::kFromService) {
        const std::vector<uint8_t> data = TakeApart(step.bytes).value_or(ServicePacket{}).data;
        notified.insert(notified.end(), data.begin(), data.end());
      }
    }
    EXPECT_EQ(Hex(received), Hex(notified)) << example.name;
  }
}

}  // namespace
