// SPDX-License-Identifier: MIT
// record and replay: what was recorded is played again, by relayctl as the relay service and by the
// test as the device, both from the same file.
#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <thread>

#include "clients/ScriptedService.h"
#include "e2e/support/DeviceByRecording.h"
#include "relayctl/RelayctlTest.h"

namespace {

// Written by hand, as the manual of the format says.
constexpr const char* kConversation =
    "; asks a device for its name\n"
    "0        ! link up\n"
    "+0       > #PhysicalPort0 open\n"
    "+0.01    < #PhysicalPort0 open 0\n"
    "+0       > #PhysicalPort0 data 2A 49 44 4E 3F 0A   ; \"*IDN?\\n\"\n"
    "+0.02    < #PhysicalPort0 data 4D31 300D 0A        ; \"M10\\r\\n\"\n"
    "+0       > - packet 0007 03 02 0001 58             ; refused\n"
    "+0       > #PhysicalPort0 close\n"
    "+0.01    < #PhysicalPort0 close 0\n"
    "+0       > #PhysicalPort0 close\n"
    "+0.01    < #PhysicalPort0 close 2\n"
    "+0       ! link down\n";

// The lines of the events without their times, and without remarks.
std::string Events(const std::string& text) {
  std::string events;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    line.resize(std::min(line.size(), line.find("  ;")));
    if (!line.empty() && line[0] != ';') {
      events += line.substr(line.find_first_of("<>!")) + "\n";
    }
  }
  return events;
}

class RecordTest : public RelayctlTest {};

struct Difference {
  const char* name;
  const char* recording;
  const char* told;
};

void PrintTo(const Difference& row, std::ostream* stream) { *stream << row.recording; }

class DifferenceTest : public RecordTest, public testing::WithParamInterface<Difference> {};

TEST_P(DifferenceTest, IsToldByReplay) {
  workplace::WriteWhole(kRecording, GetParam().recording);
  PlugAndStart();
  const Outcome outcome = RunShell(std::string("relayctl replay --timeout 2 ") + kRecording);
  EXPECT_EQ(std::string("different: ") + GetParam().told + ", 1 difference\n", outcome.output);
  EXPECT_EQ(7, outcome.status);
}

constexpr Difference kDifferences[] = {
    {"Another", "0 > #PhysicalPort0 open\n0.1 < #PhysicalPort0 open 2\n",
     "recorded was < #PhysicalPort0 open 2; came < #PhysicalPort0 open 0\n"
     "1 packets sent, 0 came as recorded"},
    {"Missing",
     "0 > #PhysicalPort0 open\n0.1 < #PhysicalPort0 open 0\n0.2 < #PhysicalPort0 data 41\n",
     "recorded was < #PhysicalPort0 data 41  ; \"A\"; nothing more came\n"
     "1 packets sent, 1 came as recorded"},
    {"TooMuch", "0 > X close\n",
     "came more than recorded: < X close 2\n1 packets sent, 0 came as recorded"},
};

INSTANTIATE_TEST_SUITE_P(Each, DifferenceTest, testing::ValuesIn(kDifferences), NameOf<Difference>);

TEST_F(RecordTest, ReplayKeepsTheRecordedPauses) {
  workplace::WriteWhole(kRecording, "0 ! link up\n0.6 > X close\n0.6 < X close 2\n");
  StartListening();
  const auto replay = [&](const std::string& options) {
    return TimeOf([&] {
      EXPECT_EQ(0, RunShell("relayctl replay " + options + " --wait 0 " + kRecording).status);
    });
  };
  EXPECT_GE(replay(""), std::chrono::milliseconds(600));
  EXPECT_GE(replay("--speed 0.5"), std::chrono::milliseconds(1200));
}

TEST_F(RecordTest, RecordWritesWhatItsPortsReceive) {
  PlugAndStart();
  Background record(std::string("relayctl record --output ") + kRecording + " '#PhysicalPort0'");
  ASSERT_TRUE(record.Prints("relayctl: #PhysicalPort0: open\n"));
  ASSERT_TRUE(device->Sends("M10\r\n"));
  ASSERT_TRUE(
      Eventually([] { return workplace::ReadWhole(kRecording).find("4D") != std::string::npos; }));
  record.Signal(SIGINT);
  EXPECT_EQ("exit 0", record.WaitForExit());
  EXPECT_EQ(
      "! link up\n"
      "> #PhysicalPort0 open\n"
      "< #PhysicalPort0 open 0\n"
      "< #PhysicalPort0 data 4D 31 30 0D 0A\n",
      Events(workplace::ReadWhole(kRecording)));
}

TEST_F(RecordTest, AnOldRecordingStaysUntilTheServiceHasAnswered) {
  workplace::WriteWhole(kRecording, "precious");
  const auto recordsNothing = [](const std::string& what) {
    Background record(std::string("relayctl record --output ") + kRecording + " " + what);
    EXPECT_TRUE(Eventually([&] {
      const std::string told = record.Output();
      return told.find("waiting for ") != std::string::npos ||
             told.find("another ") != std::string::npos;
    })) << record.Output();
    record.Signal(SIGINT);
    EXPECT_EQ("exit 0", record.WaitForExit());
    EXPECT_TRUE(record.Output().ends_with("nothing recorded; /tmp/e2e/recording is as it was\n"))
        << record.Output();
    EXPECT_EQ("precious", workplace::ReadWhole(kRecording)) << what;
  };
  recordsNothing("--listen 60005");
  recordsNothing("'#PhysicalPort0'");
  StartLinked();  // another has the link: the kernel takes a second, but the service does not
  recordsNothing("'#PhysicalPort0'");
}

TEST_F(RecordTest, RecordThatEndsWithoutALinkIsNoSuccess) {
  EXPECT_EQ(3, RunShell("relayctl record '#PhysicalPort0' --for 0.2").status);
}

// The relay service is replay, which takes relayctl's port for the service's.
TEST_F(RecordTest, RecordStandsBetweenAndRecordsBothDirections) {
  const std::string original = "/tmp/e2e/original";
  workplace::WriteWhole(original, kConversation);
  PlugAndStart();
  Background record(std::string("relayctl record --output ") + kRecording + " --listen 60005");
  ASSERT_TRUE(record.Prints("waiting for a relay service on 127.0.0.1:60005\n"));
  DeviceByRecording far(*device, "#PhysicalPort0", original);
  const Outcome outcome = RunShell("relayctl --port 60005 replay " + original);
  EXPECT_EQ("5 packets sent, 4 came as recorded, no difference\n", outcome.output);
  EXPECT_EQ("", far.Finish());
  ASSERT_TRUE(record.Prints("the relay service left\n"));
  record.Signal(SIGINT);
  EXPECT_EQ("exit 0", record.WaitForExit());
  EXPECT_EQ(
      "! link up\n"
      "> #PhysicalPort0 open\n"
      "< #PhysicalPort0 open 0\n"
      "> #PhysicalPort0 data 2A 49 44 4E 3F 0A\n"
      "< #PhysicalPort0 data 4D 31 30 0D 0A\n"
      "> - packet 00 07 03 02 00 01 58\n"
      "> #PhysicalPort0 close\n"
      "< #PhysicalPort0 close 0\n"
      "> #PhysicalPort0 close\n"
      "< #PhysicalPort0 close 2\n"
      "! link down\n",
      Events(workplace::ReadWhole(kRecording)));
}

// The command line's own commands are the first and the last.
TEST_F(RecordTest, RecordMarksTheOpensThatAreFences) {
  PlugAndStart();
  Background record(std::string("relayctl record --output ") + kRecording + " --listen 60005");
  ASSERT_TRUE(record.Prints("waiting for a relay service on 127.0.0.1:60005\n"));
  EXPECT_EQ(0, RunShell("relayctl --port 60005 write '#PhysicalPort0' ABC").status);
  ASSERT_TRUE(record.Prints("the relay service left\n"));
  const std::string text = workplace::ReadWhole(kRecording);
  EXPECT_THAT(text, testing::HasSubstr(" > #PhysicalPort0 open\n"));
  EXPECT_THAT(text, testing::HasSubstr(" < #PhysicalPort0 open 0\n"));
  EXPECT_THAT(text, testing::HasSubstr(" > #PhysicalPort0 open 17989  ; fence\n"));
  EXPECT_THAT(text, testing::HasSubstr(" < #PhysicalPort0 open 3  ; of the fence\n"));
  EXPECT_THAT(text, testing::Not(testing::HasSubstr("open 3\n")));
}

TEST_F(RecordTest, RecordTellsTheRelayThatTheServiceEnded) {
  StartListening();
  Background record(std::string("relayctl record --output ") + kRecording + " --listen 60005");
  ASSERT_TRUE(record.Prints("waiting for a relay service"));
  EXPECT_EQ(5, RunShell("relayctl --port 60005 raw 0002").status);
  EXPECT_TRUE(record.Prints("ended the link\n"));
  EXPECT_TRUE(Eventually(
      [] { return workplace::ReadWhole(kRecording).find("! link down") != std::string::npos; }));
}

// The kernel keeps little, and the rest is with record when one side ends.
class SlowSideTest : public RecordTest {
 protected:
  static constexpr int kPackets = 40;

  // 30,000 bytes for or from a port, as hex.
  static std::string Data(const char* blockType) {
    std::string hex = std::string("753B 04 02 0001 58 01 ") + blockType + " 7530 ";
    for (int i = 0; i < 30000; ++i) {
      hex += "78";
    }
    return hex;
  }

  SlowSideTest() {
    for (const char* const memory : {"tcp_rmem", "tcp_wmem"}) {
      EXPECT_TRUE(std::ofstream(std::string("/proc/sys/net/ipv4/") + memory)
                  << "4096 8192 8192" << std::flush);
    }
    scripted = std::make_unique<ScriptedService>();
    record = std::make_unique<Background>("relayctl --port " + std::to_string(scripted->TcpPort()) +
                                          " record --output " + kRecording + " --listen 60005");
    EXPECT_TRUE(record->Prints("waiting for a relay service on 127.0.0.1:60005\n"));
  }

  std::unique_ptr<ScriptedService> scripted;
  std::unique_ptr<Background> record;
};

TEST_F(SlowSideTest, TheServiceGetsAllFromARelayServiceThatHasLeft) {
  const std::jthread relayService([bytes = relay::FromHex(Data("01"))] {
    const Relay leaving(60005);
    for (int i = 0; i < kPackets; ++i) {
      leaving.SendsBytes(bytes);
    }
  });
  ASSERT_TRUE(Eventually([this] { return scripted->HasPeer(); }));
  for (int i = 0; i < kPackets; ++i) {
    ASSERT_TRUE(Eventually([this] { return scripted->Takes().has_value(); })) << i;
  }
  EXPECT_TRUE(record->Prints("the relay service left\n"));
}

TEST_F(SlowSideTest, TheRelayServiceGetsAllFromAServiceThatHasEnded) {
  const std::string hex = Data("02");
  Relay slow(60005);
  ASSERT_TRUE(Eventually([this] { return scripted->HasPeer(); }));
  const std::jthread server([this, &hex] {
    for (int i = 0; i < kPackets; ++i) {
      scripted->Sends(hex.c_str());
    }
    scripted->Leave();
  });
  for (int i = 0; i < kPackets; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));  // its pace
    ASSERT_EQ(Wire(hex), slow.NextPacket()) << i;
  }
  EXPECT_EQ("closed", slow.NextPacket());
}

}  // namespace
