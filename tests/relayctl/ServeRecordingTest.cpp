// SPDX-License-Identifier: MIT
// relayctl serve with the device's side of a recording.
#include <algorithm>
#include <filesystem>
#include <set>

#include "relayctl/ServeTest.h"

namespace {

namespace fs = std::filesystem;

class ServeRecordingTest : public ServeTest {
 protected:
  void ServeRecording(const std::string& text, const std::string& options = "") {
    workplace::WriteWhole(kRecording, text);
    Serve(std::string("--port '#PhysicalPort0=recording:") + kRecording + "' " + options);
  }
};

// Those that relayctl replay cannot play, against the service neither: what stands in "bytes" it
// does not send, a second link follows the first too fast, and an end of the service is no event.
const std::set<std::string> kOtherwise = {
    "adapters/close-by-absent-ids.rec",
    "days/two-relay-services.rec",
    "malformed/between-others.rec",
    "malformed/length-2.rec",
    "relink/at-once.rec",
    "relink/inside-a-packet.rec",
    "relink/ports-are-closed.rec",
    "relink/with-an-unplugged-port.rec",
};

// Both sides of each, out of one file.
TEST_F(ServeRecordingTest, WhatItPlaysIsWhatReplayExpects) {
  size_t played = 0;
  for (const auto& entry : fs::recursive_directory_iterator(SPH_RECORDINGS)) {
    const std::string file = entry.path();
    if (entry.path().extension() != ".rec" ||
        kOtherwise.contains(fs::relative(file, SPH_RECORDINGS))) {
      continue;
    }
    std::string ports;
    for (const char* const port :
         {"#PhysicalPort0", "#USBSerialPort0", "#USBSerialPort1", "#USBSerialPort2",
          "#USBSerialPort3", "#USBSerialPort4", "#USBSerialPort5"}) {
      ports += std::string(" --port '") + port + "=recording:" + file + "'";
    }
    const Background server("relayctl serve --fast" + ports + " </dev/null");
    const Outcome outcome = RunShell("relayctl replay --fast --wait 0 --patience 60 " + file);
    EXPECT_EQ(0, outcome.status) << file << ": " << outcome.output << server.Output();
    ++played;
  }
  EXPECT_GT(played, 40U);
}

TEST_F(ServeRecordingTest, KeepsTheRecordedPausesButForFast) {
  constexpr const char* kPaused =
      "0   > #PhysicalPort0 open\n0   < #PhysicalPort0 open 0\n0.4 < #PhysicalPort0 data 41\n";
  ASSERT_NO_FATAL_FAILURE(ServeRecording(kPaused));
  const auto askAndReceive = [this] {
    EXPECT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
    EXPECT_EQ(Wire("0019 04 02 000E '#PhysicalPort0' 01 02 0001 41"), relay->NextPacket());
  };
  EXPECT_GE(TimeOf(askAndReceive), std::chrono::milliseconds(400));
  EXPECT_EQ(Wire(kPort0Closed), relay->Answer(kClosePort0));
  EXPECT_GE(TimeOf(askAndReceive), std::chrono::milliseconds(400));  // it begins anew
}

// However they are cut, and whatever they are.
TEST_F(ServeRecordingTest, AnswersOnceTheRecordedBytesHaveCome) {
  ASSERT_NO_FATAL_FAILURE(
      ServeRecording("0 > #PhysicalPort0 open\n0 < #PhysicalPort0 open 0\n"
                     "9 > #PhysicalPort0 data 41 42\n9 < #PhysicalPort0 data 43\n"));
  EXPECT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  relay->Sends("0019 04 02 000E '#PhysicalPort0' 01 01 0001 41");
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_EQ(Wire("0019 04 02 000E '#PhysicalPort0' 01 02 0001 43"),
            relay->Answer("0019 04 02 000E '#PhysicalPort0' 01 01 0001 5A"));
  EXPECT_TRUE(serve->Prints("#PhysicalPort0: recorded was \"AB\"; came \"AZ\"\n"));
}

TEST_F(ServeRecordingTest, ALineOfItProvokes) {
  ASSERT_NO_FATAL_FAILURE(
      ServeRecording("0 > #PhysicalPort0 open\n0 < #PhysicalPort0 open 0\n"
                     ";; status 5\n"
                     "0 < #PhysicalPort0 data 41\n"
                     ";; unplug #PhysicalPort0\n"
                     "0.3 > X open\n"
                     ";; plug #PhysicalPort0\n"
                     "0.3 < #PhysicalPort0 data 42\n"));
  EXPECT_GE(
      TimeOf([this] {
        EXPECT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
        EXPECT_EQ(Wire("0019 04 02 000E '#PhysicalPort0' 01 02 0001 41"), relay->NextPacket());
        EXPECT_EQ(Wire("0019 04 02 000E '#PhysicalPort0' 01 02 0001 42"), relay->NextPacket());
      }),
      std::chrono::milliseconds(300));
  ExpectHas(serve->Output(), "#PhysicalPort0: unplugged\nrelayctl: #PhysicalPort0: plugged in\n");
  EXPECT_EQ(Wire("0016 02 02 000E '#PhysicalPort0' 0005"), relay->Answer(kClosePort0));
  EXPECT_EQ(Wire(kPort0Closed), relay->Answer(kClosePort0));
}

TEST_F(ServeRecordingTest, ALineThatProvokesNothingIsTold) {
  workplace::WriteWhole(kRecording, "0 < #PhysicalPort0 open 0\n;; jump\n");
  const Outcome outcome =
      RunShell(std::string("relayctl serve --port '#PhysicalPort0=recording:") + kRecording + "'");
  EXPECT_EQ(2, outcome.status);
  ExpectHas(outcome.output, std::string("relayctl: ") + kRecording + ":2: \"jump\" is none of ");
}

}  // namespace
