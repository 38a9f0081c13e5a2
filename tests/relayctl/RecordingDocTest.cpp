// SPDX-License-Identifier: MIT
// The examples of docs/recording.md: read by the client library, and played through the real
// service by all that read the format: the tests, and relayctl.
#include <sstream>
#include <vector>

#include "e2e/support/DeviceByRecording.h"
#include "recordings/Examples.h"
#include "recordings/Player.h"
#include "relay/Error.h"
#include "relay/Recording.h"
#include "relayctl/RelayctlTest.h"

namespace {

// The blocks of that kind, in their order.
std::vector<std::string> Blocks(const std::string& kind) {
  std::vector<std::string> blocks;
  for (const Example& example : ReadExamples(SPH_RECORDING_DOCUMENT)) {
    if (example.kind == kind) {
      blocks.push_back(example.text);
    }
  }
  return blocks;
}

// What fails in `line`, which stands alone in a recording.
std::string Mistake(const std::string& line) {
  try {
    (void)relay::ReadRecording(line, "x");
  } catch (const relay::Error& error) {
    return error.what();
  }
  return "none";
}

TEST(RecordingDocTest, TheFirstExampleIsWrittenAsRecordWritesIt) {
  const std::vector<std::string> blocks = Blocks("recording");
  ASSERT_EQ(2U, blocks.size());
  std::string again = blocks[0].substr(0, blocks[0].find('\n') + 1);
  EXPECT_EQ("; relay recording 1, begun 2026-11-21T08:30:00Z\n", again);
  for (const relay::RecordedEvent& event : relay::ReadRecording(blocks[0], "example")) {
    again += relay::ToLine(event) + "\n";
  }
  EXPECT_EQ(blocks[0], again);
}

TEST(RecordingDocTest, EachMistakeIsToldAsTheManualSays) {
  const std::vector<std::string> blocks = Blocks("mistakes");
  ASSERT_EQ(1U, blocks.size());
  std::istringstream lines(blocks[0]);
  size_t count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    const size_t end = line.find("    ");
    ASSERT_NE(std::string::npos, end) << line;
    EXPECT_EQ("x:1: " + line.substr(line.find_first_not_of(' ', end)), Mistake(line.substr(0, end)))
        << line;
  }
  EXPECT_EQ(11U, count);
}

class RecordingPlayTest : public RelayctlTest, public testing::WithParamInterface<size_t> {
 protected:
  void SetUp() override {
    workplace::WriteWhole(kRecording, Blocks("recording").at(GetParam()));
    device = std::make_unique<Device>();
  }
};

TEST_P(RecordingPlayTest, RelayctlAndTheTestsDevicePlayItWithEachOther) {
  StartListening();
  DeviceByRecording far(*device, "#PhysicalPort0", kRecording);
  const Outcome outcome = RunShell(std::string("relayctl replay ") + kRecording);
  EXPECT_TRUE(outcome.output.ends_with(" came as recorded, no difference\n")) << outcome.output;
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ("", far.Finish());
}

INSTANTIATE_TEST_SUITE_P(Examples, RecordingPlayTest, testing::Values(size_t{0}, size_t{1}));

TEST(RecordingDocTest, TheTestsPlayEachExample) {
  for (const std::string& example : Blocks("recording")) {
    EXPECT_EQ("", Player().Play(example, "example"));
  }
}

}  // namespace
