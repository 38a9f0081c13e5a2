// SPDX-License-Identifier: MIT
// The conversations of the document and its refused packets, held with the real process.
#include <iostream>
#include <map>
#include <ostream>
#include <regex>

#include "e2e/ServiceTest.h"
#include "protocol-doc/Document.h"
#include "support/Hex.h"

void PrintTo(const Example& example, std::ostream* stream);

void PrintTo(const Example& example, std::ostream* stream) {
  *stream << example.kind << " " << example.name << ", line " << example.line;
}

namespace {

std::string Text(const Step& step) { return {step.bytes.begin(), step.bytes.end()}; }

std::string At(const Step& step) { return "line " + std::to_string(step.line) + ": " + step.words; }

class ConversationTest : public ServiceTest, public testing::WithParamInterface<Example> {
 protected:
  ConversationTest() { configuration = Configuration(); }

  // What the document says about the machine.
  void SetUpMachine(const Step& step) {
    static const std::regex configured("(#\\w+) is configured: (\\S+ \\S+ \\S+ \\S+ \\S+)");
    static const std::regex plain("(/dev/\\w+) is a serial device");
    static const std::regex adapter(
        "(/dev/\\w+) is adapter ([0-9a-f]{4}):([0-9a-f]{4}) at #USBSerialPort([0-5])");
    std::smatch parts;
    if (std::regex_match(step.words, parts, configured)) {
      configuration.Port(parts[1], parts[2]);
    } else if (std::regex_match(step.words, parts, plain)) {
      devices[parts[1]] = std::make_unique<Device>(parts[1]);
    } else if (std::regex_match(step.words, parts, adapter)) {
      devices[parts[1]] = std::make_unique<Device>(parts[1]);
      udev.AddAdapterAtPort(static_cast<unsigned>(std::stoul(parts[4])), parts[1], parts[2],
                            parts[3]);
    } else {
      FAIL() << "no known set-up";
    }
  }

  void Do(const Step& step) {
    ASSERT_FALSE(hasEnded) << "a step behind the end";
    switch (step.mark) {
      case Mark::kSetUp:
        return SetUpMachine(step);
      case Mark::kToService:
        return relay->Sends(HexOf(Text(step)));
      case Mark::kFromService:
        ASSERT_EQ(HexOf(Text(step)), relay->NextPacket());
        return;
      case Mark::kToLine:
        ASSERT_EQ(HexOf(Text(step)), HexOf(DeviceOf(step).Reads(step.bytes.size())));
        return;
      case Mark::kFromLine:
        ASSERT_TRUE(DeviceOf(step).Sends(Text(step)));
        return;
      case Mark::kEnd:
        return ExpectEnd(step);
    }
  }

  const Device& DeviceOf(const Step& step) const { return *devices.at(step.device); }

  void ExpectEnd(const Step& step) {
    hasEnded = true;
    if (step.words == "the link ends") {
      EXPECT_EQ("closed", relay->NextPacket());
      EXPECT_EQ("still running", service->State());
    } else if (step.words == "the service ends") {
      EXPECT_EQ("closed", relay->NextPacket());
      EXPECT_EQ("signal 6", service->WaitForExit());
    } else {
      FAIL() << "no known end";
    }
  }

  // The link works, and nothing has come that the document does not tell.
  void ExpectNothingElse() {
    if (!hasEnded) {
      EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
    }
    for (const auto& [path, plugged] : devices) {
      EXPECT_EQ("", plugged->ReadsWaiting()) << path;
    }
  }

  std::map<std::string, std::unique_ptr<Device>> devices;
  bool hasEnded = false;
};

size_t CommandsOf(const Example& example) {
  size_t count = 0;
  for (const Step& step : example.steps) {
    count += step.mark == Mark::kToService ? 1 : 0;
  }
  return count;
}

TEST_P(ConversationTest, IsWhatTheServiceDoes) {
  StartLinked();
  for (const Step& step : GetParam().steps) {
    SCOPED_TRACE(At(step));
    ASSERT_NO_FATAL_FAILURE(Do(step));
  }
  ExpectNothingElse();
  if (GetParam().kind == "refused") {
    EXPECT_EQ(CommandsOf(GetParam()), LogFile::Count(kRefused));
  }
  std::cout << GetParam().steps.size() << " steps executed\n";
}

// A document that cannot be read gives no test here, and fails the tests of its packets.
std::vector<Example> Conversations() {
  const Document document = ReadProtocolDocument();
  std::vector<Example> all = document.OfKind("conversation");
  for (const Example& refused : document.OfKind("refused")) {
    all.push_back(refused);
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(Document, ConversationTest, testing::ValuesIn(Conversations()),
                         [](const auto& example) { return example.param.name; });

}  // namespace
