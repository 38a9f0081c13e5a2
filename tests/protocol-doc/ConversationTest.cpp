// SPDX-License-Identifier: MIT
// The conversations of the document and its refused packets, held with the real process.
#include <array>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <map>
#include <ostream>
#include <sstream>

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

  // What the document says about the machine:
  //   #PhysicalPort0 is configured: 9600 8 none 1 none
  //   /dev/ttyS2 is a serial device
  //   /dev/ttyUSB0 is adapter 0403:6001 at #USBSerialPort0
  void SetUpMachine(const Step& step) {
    constexpr const char* kConfigured = " is configured: ";
    if (const size_t at = step.words.find(kConfigured); at != std::string::npos) {
      const std::string settings = step.words.substr(at + std::strlen(kConfigured));
      return configuration.Port(step.words.substr(0, at), settings);
    }
    std::istringstream words(step.words);
    std::string node;
    words >> node;
    devices[node] = std::make_unique<Device>(node);
    if (step.words != node + " is a serial device") {
      PlugIn(node, step.words);
    }
  }

  void PlugIn(const std::string& node, const std::string& words) {
    std::array<char, 5> vendor{};
    std::array<char, 5> product{};
    unsigned port = 0;
    const int found =
        std::sscanf(words.c_str(), "%*s is adapter %4[0-9a-f]:%4[0-9a-f] at #USBSerialPort%u",
                    vendor.data(), product.data(), &port);
    const std::string whole = node + " is adapter " + vendor.data() + ":" + product.data() +
                              " at #USBSerialPort" + std::to_string(port);
    ASSERT_TRUE(found == 3 && words == whole) << "no known set-up";
    udev.AddAdapterAtPort(port, node, vendor.data(), product.data());
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
