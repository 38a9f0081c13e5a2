// SPDX-License-Identifier: MIT
// open, close, write, raw and decode against the real service.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

#include "relayctl/RelayctlTest.h"

namespace {

std::string ManyBytes(size_t count) {
  std::string bytes(count, '\0');
  uint32_t state = 1;
  for (char& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

class CommandsTest : public RelayctlTest {};

struct Answer {
  const char* name;
  bool hasDevice;
  const char* command;
  const char* output;
  int status = 0;
  std::string toDevice = "";
};

void PrintTo(const Answer& row, std::ostream* stream) { *stream << row.command; }

const Answer kAnswers[] = {
    {"Open", true, "relayctl open '#PhysicalPort0'", "#PhysicalPort0: open\n"},
    {"OpenOneOfTwo", true, "relayctl open '#PhysicalPort0' '#X'",
     "#PhysicalPort0: open\n"
     "relayctl: #X: status 2: this machine's configuration has no such port, or the name leads to "
     "no device\n",
     12},
    {"OpenTellsOfEachPortThatIsRefused", false, "relayctl open '#PhysicalPort0' '#X'",
     "relayctl: #PhysicalPort0: status 4: the device could not be opened or set up, or its node is "
     "missing\n"
     "relayctl: #X: status 2: this machine's configuration has no such port, or the name leads to "
     "no device\n",
     14},
    {"OpenTwice", true, "relayctl open '#PhysicalPort0' '#PhysicalPort0'",
     "#PhysicalPort0: open\n"
     "relayctl: #PhysicalPort0: status 3: the port is open already, and stays open\n",
     13},
    {"OpenAsJson", true, "relayctl open '#PhysicalPort0' --json",
     "{\"event\":\"open\",\"port\":\"#PhysicalPort0\",\"status\":0,\"meaning\":\"open\"}\n"},
    {"CloseFindsNothingOpen", false, "relayctl close '#PhysicalPort0'",
     "relayctl: #PhysicalPort0: status 2: the port is not open\n", 12},
    {"WriteEscapes", true, "relayctl write '#PhysicalPort0' '*IDN?\\r\\n\\x00\\xfe\\\\'",
     "#PhysicalPort0: 10 bytes taken by the service\n", 0, std::string("*IDN?\r\n\0\xFE\\", 10)},
    {"WriteHex", true, "relayctl write '#PhysicalPort0' --hex '02 41:42 03'",
     "#PhysicalPort0: 4 bytes taken by the service\n", 0,
     "\x02"
     "AB\x03"},
    {"WriteStandardInput", true, "printf 'a\\\\n' | relayctl write '#PhysicalPort0'",
     "#PhysicalPort0: 3 bytes taken by the service\n", 0, "a\\n"},
    {"RawDecodesTheAnswers", false,
     "relayctl raw 0007 02 02 0001 58  0008 01 01 0403 6001 --wait 2",
     "< reply to close X: status 2, the port is not open\n"
     "< reply to open 0403:6001: status 2, this machine's configuration has no such port, or the "
     "name leads to no device\n"},
    {"RawEndsTheLink", false, "relayctl raw 0002",
     "relayctl: the service at 127.0.0.1:60004 ended the link\n", 5},
    {"DecodeEachField", false,
     "relayctl decode 001B 04 02 000E 23506879736963616C506F727430 01 01 0003 41420A",
     "> data for #PhysicalPort0: type 1 \"AB\\n\"\n"
     "    00 1B                                           length of the packet 27\n"
     "    04                                              command 4: data\n"
     "    02                                              port form 2: named\n"
     "    00 0E                                           length of the name 14\n"
     "    23 50 68 79 73 69 63 61 6C 50 6F 72 74 30       name \"#PhysicalPort0\"\n"
     "    01                                              number of blocks 1\n"
     "    01                                              block type 1\n"
     "    00 03                                           length of the data 3\n"
     "    41 42 0A                                        data \"AB\\n\"\n"},
    {"DecodeGuessesTheDirection", false,
     "relayctl decode --brief 0007 01 02 0001 58 0009 01 02 0001 58 0002 "
     "000C 04 02 0001 58 01 02 0001 41",
     "> open X\n"
     "< reply to open X: status 2, this machine's configuration has no such port, or the name "
     "leads to no device\n"
     "< from X: \"A\"\n"},
    {"DecodeSaysWhatIsWrong", false, "relayctl decode --brief 0006 02 01 0403",
     "> no packet: the product id is cut off\n", 6},
    {"DecodeAsJson", false, "relayctl decode --json '000C 04 02 0001 58 01 02 0001 0A'",
     "{\"event\":\"packet\",\"direction\":\"from\",\"hex\":\"000C0402000158010200010A\","
     "\"command\":\"data\",\"port\":\"X\",\"blocks\":1,\"data\":\"0A\",\"text\":\"\\u000A\"}\n"},
    {"DecodeAFence", false, "relayctl decode --direction to 0009 01 02 0001 58 4645 | tail -n 1",
     "    46 45                                           parameter 17989: a fence\n"},
};

class AnswerTest : public CommandsTest, public testing::WithParamInterface<Answer> {};

TEST_P(AnswerTest, IsAsTabled) {
  device = GetParam().hasDevice ? std::make_unique<Device>() : nullptr;
  StartListening();
  const Outcome outcome = RunShell(GetParam().command);
  EXPECT_EQ(GetParam().output, outcome.output);
  EXPECT_EQ(GetParam().status, outcome.status);
  if (!GetParam().toDevice.empty()) {
    EXPECT_EQ(GetParam().toDevice, device->Reads(GetParam().toDevice.size()));
  }
}

INSTANTIATE_TEST_SUITE_P(Of, AnswerTest, testing::ValuesIn(kAnswers), NameOf<Answer>);

TEST_F(CommandsTest, OpenHoldsThePortUntilItIsInterrupted) {
  PlugAndStart();
  Background open("relayctl open '#PhysicalPort0' --hold");
  ASSERT_TRUE(open.Prints("open\n"));
  Settle();
  EXPECT_TRUE(service->Holds(device->Node()));
  open.Signal(SIGINT);
  EXPECT_EQ("exit 0", open.WaitForExit());
  EXPECT_TRUE(Eventually([this] { return !service->Holds(device->Node()); }));
}

TEST_F(CommandsTest, CloseByIdsOfNoAdapterShowsThatTheServiceEnded) {
  StartListening();
  const Outcome outcome = RunShell("relayctl close 0403:6001 --patience 0.3");
  EXPECT_NE(0, outcome.status);
  EXPECT_EQ("signal 6", service->WaitForExit());
}

// More than one command can carry, read by the device as slowly as it comes. The pause before the
// program leaves is its own: without one, the close would drop what the device has not read yet.
TEST_F(CommandsTest, WriteOfALongFileArrivesUnchanged) {
  PlugAndStart();
  const std::string bytes = ManyBytes(300000);
  workplace::WriteWhole("/tmp/e2e/long", bytes);
  Background write("relayctl write '#PhysicalPort0' --file /tmp/e2e/long --json");
  EXPECT_TRUE(bytes == device->Reads(bytes.size()));
  EXPECT_EQ("exit 0", write.WaitForExit());
  EXPECT_EQ("{\"event\":\"taken\",\"port\":\"#PhysicalPort0\",\"bytes\":300000}\n", write.Output());
}

// It leaves at once behind the last byte that the line has taken, so that what it has said before
// that is what its waiting shows. What the line still holds then is dropped by the close.
TEST_F(CommandsTest, WriteWaitsUntilTheLineHasTakenEverything) {
  PlugAndStart();
  const std::string bytes = ManyBytes(200000);
  workplace::WriteWhole("/tmp/e2e/long", bytes);
  Background write("relayctl write '#PhysicalPort0' --file /tmp/e2e/long --linger 0");
  EXPECT_TRUE(bytes.substr(0, 100000) == device->Reads(100000));
  Settle();
  EXPECT_EQ("", write.Output());  // the rest waits in front of the line
  ASSERT_TRUE(Eventually([&] {
    (void)device->ReadsWaiting();
    return !write.Output().empty();
  }));
  EXPECT_EQ("exit 0", write.WaitForExit());
  EXPECT_EQ("#PhysicalPort0: 200000 bytes taken by the service\n", write.Output());
}

// The data come in two parts; what befalls the device between them is the case.
class DepartureTest : public CommandsTest {
 protected:
  void StartWriting(const std::string& command) {
    PlugAndStart();
    ASSERT_EQ(0, mkfifo(kInput, 0600));
    write = std::make_unique<Background>(command + " <" + kInput);
    input.open(kInput);
    input << "begin" << std::flush;
    ASSERT_EQ("begin", device->Reads(5)) << write->Output();
  }

  void Unplug() {
    device->Unplug();
    ASSERT_TRUE(LogFile::Shows(
        "1 SerialPortHandler SerialPort.cpp 4 Close serial device. [Port /dev/ttyS2]"));
  }

  static bool Logged(const std::string& text) {
    return LogFile::Text().find(text) != std::string::npos;
  }

  // Gives it the second part, which the device reads if it is there, and the end.
  std::string EndOfWriting() {
    input << ManyBytes(50001) << std::flush;
    input.close();
    (void)Eventually([this] {
      (void)device->ReadsWaiting();
      return !write->Output().empty();
    });
    return write->WaitForExit();
  }

  void ExpectSuccess() {
    EXPECT_EQ("exit 0", EndOfWriting());
    EXPECT_EQ("#PhysicalPort0: 50006 bytes taken by the service\n", write->Output());
  }

  static constexpr const char* kInput = "/tmp/e2e/input";
  static constexpr const char* kWrite = "relayctl write '#PhysicalPort0' --linger 0";

  // Where it cannot see the machine's devices.
  static constexpr const char* kBlindWrite =
      "unshare --mount sh -c 'mount -t tmpfs none /dev && "
      "exec relayctl write \\#PhysicalPort0 --linger 0'";

  std::unique_ptr<Background> write;
  std::ofstream input;
};

TEST_F(DepartureTest, WhatIsDroppedIsNoSuccess) {
  ASSERT_NO_FATAL_FAILURE(StartWriting(kWrite));
  ASSERT_NO_FATAL_FAILURE(Unplug());
  EXPECT_EQ("exit 14", EndOfWriting());
  EXPECT_TRUE(Logged("Serial Device Send Error."));
  EXPECT_EQ("relayctl: #PhysicalPort0: the device is gone; the service had taken 50006 bytes\n",
            write->Output());
}

TEST_F(DepartureTest, ADeviceThatCameBackIsNoSuccess) {
  ASSERT_NO_FATAL_FAILURE(StartWriting(kWrite));
  ASSERT_NO_FATAL_FAILURE(Unplug());
  device->Plug();
  ASSERT_TRUE(Service::Prints("OPEN[/dev/ttyS2]", 2));
  EXPECT_EQ("exit 14", EndOfWriting());
  EXPECT_EQ(
      "relayctl: #PhysicalPort0: the device was away meanwhile; the service had taken 50006 "
      "bytes\n",
      write->Output());
}

TEST_F(DepartureTest, TheServiceIsAskedWhereTheDeviceCannotBeSeen) {
  ASSERT_NO_FATAL_FAILURE(StartWriting(kBlindWrite));
  ASSERT_NO_FATAL_FAILURE(Unplug());
  EXPECT_EQ("exit 14", EndOfWriting());
  EXPECT_EQ(
      "relayctl: #PhysicalPort0: status 4: the device could not be opened or set up, or its node "
      "is missing; the service had taken 50006 bytes\n",
      write->Output());
}

// That would move its modem lines, which resets some devices.
TEST_F(DepartureTest, ADeviceThatIsSeenToBeThereIsNotOpenedAgain) {
  ASSERT_NO_FATAL_FAILURE(StartWriting(kWrite));
  ExpectSuccess();
  EXPECT_FALSE(Logged("close command proc."));
}

TEST_F(DepartureTest, ADeviceThatTheServiceOpensAgainIsThere) {
  ASSERT_NO_FATAL_FAILURE(StartWriting(kBlindWrite));
  ExpectSuccess();
  EXPECT_TRUE(Logged("close command proc."));
}

// The line takes more when it has room for some of what waits, and not before.
TEST_F(CommandsTest, WriteToASlowLineIsNoFailure) {
  PlugAndStart();
  workplace::WriteWhole("/tmp/e2e/slow", ManyBytes(60000));
  Background write("relayctl --timeout 3 write '#PhysicalPort0' --linger 0 --file /tmp/e2e/slow");
  constexpr int64_t kSpeed = 12;  // bytes in a millisecond
  const auto taken = TimeOf([&] {
    const auto begin = std::chrono::steady_clock::now();
    for (int64_t came = 0; write.State() == "still running";) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      const auto passed = std::chrono::steady_clock::now() - begin;
      const int64_t due = passed / std::chrono::milliseconds(1) * kSpeed - came;
      came += std::ssize(device->ReadsWaiting(static_cast<size_t>(due)));
    }
  });
  EXPECT_GT(taken, std::chrono::seconds(3));
  EXPECT_EQ("exit 0", write.State());
  EXPECT_EQ("#PhysicalPort0: 60000 bytes taken by the service\n", write.Output());
}

TEST_F(CommandsTest, WriteToALineThatTakesNothingTellsOfNoProgress) {
  PlugAndStart();
  workplace::WriteWhole("/tmp/e2e/stuck", ManyBytes(60000));
  Background write("relayctl --timeout 0.5 write '#PhysicalPort0' --file /tmp/e2e/stuck");
  EXPECT_EQ("exit 4", write.WaitForExit());
  EXPECT_TRUE(write.Output().starts_with(
      "relayctl: #PhysicalPort0: no progress within 500 ms; the service had taken "))
      << write.Output();
  EXPECT_NE(std::string::npos, write.Output().find(" of 60000 bytes")) << write.Output();
}

TEST_F(CommandsTest, WriteTellsHowFarItCameWhenTheServiceEnds) {
  PlugAndStart();
  workplace::WriteWhole("/tmp/e2e/long", ManyBytes(60000));
  Background write("relayctl write '#PhysicalPort0' --file /tmp/e2e/long");
  ASSERT_EQ(5000U, device->Reads(5000).size());
  Settle();
  service->Signal(SIGKILL);
  EXPECT_EQ("exit 5", write.WaitForExit());
  const std::string text =
      "relayctl: the service at 127.0.0.1:60004 ended the link; the service had taken ";
  ASSERT_TRUE(write.Output().starts_with(text)) << write.Output();
  const size_t taken = std::stoul(write.Output().substr(text.size()));
  EXPECT_GE(taken, 4096U);
  EXPECT_LT(taken, 60000U);
}

// The device reads nothing until there is some progress to look at.
TEST_F(CommandsTest, WriteKeepsItsProgressOnOneLineOfTheTerminal) {
  PlugAndStart();
  workplace::WriteWhole("/tmp/e2e/long", ManyBytes(300000));
  Background write(
      "script -qefc 'stty cols 40; relayctl write \"#PhysicalPort0\" --file /tmp/e2e/long' "
      "/dev/null");
  EXPECT_EQ(200000U, device->Reads(200000).size());
  ASSERT_TRUE(write.Prints(" left\x1B[K")) << write.Output();
  EXPECT_EQ(100000U, device->Reads(100000).size());
  EXPECT_EQ("exit 0", write.WaitForExit());
  std::istringstream shown(write.Output());
  for (std::string line; std::getline(shown, line, '\r');) {
    EXPECT_LT(line.substr(0, line.find('\x1B')).size(), 40U) << line;
  }
}

TEST_F(CommandsTest, WriteStaysAsLongAsItIsAskedTo) {
  PlugAndStart();
  const auto taken = TimeOf(
      [] { EXPECT_EQ(0, RunShell("relayctl write '#PhysicalPort0' abc --linger 1.5").status); });
  EXPECT_GE(taken, std::chrono::milliseconds(1500));
}

TEST_F(CommandsTest, WriteInBlocksSendsThemInOneCommand) {
  PlugAndStart();
  EXPECT_EQ(0, RunShell("relayctl write '#PhysicalPort0' abcdefg --blocks 3 --linger 1").status);
  EXPECT_EQ("abcdefg", device->Reads(7));
  EXPECT_EQ(1U, LogFile::Count("3 SerialPortHandler SerialPortHandler.cpp 4 data command proc."));
}

// The service is about to listen anew, as its last peer has just left.
TEST_F(CommandsTest, CommandsFollowEachOtherAtOnce) {
  PlugAndStart();
  const Outcome outcome = RunShell(
      "for i in 1 2 3 4 5; do relayctl open '#PhysicalPort0' || exit; done; "
      "relayctl write '#PhysicalPort0' end --linger 1");
  EXPECT_EQ(0, outcome.status) << outcome.output;
  EXPECT_EQ("end", device->Reads(3));
}

TEST_F(CommandsTest, DecodeReadsRecordingsAndLinesOfHex) {
  workplace::WriteWhole("/tmp/e2e/lines",
                        "; a recording\n"
                        "0.5 > X open\n"
                        "0.6 < X open 3\n"
                        "+1 < X data 0A\n"
                        "2 ! link down\n"
                        "> 0007 02 02 0001 58  # close X\n");
  EXPECT_EQ(
      "> open X\n"
      "< reply to open X: status 3, the port is open already, and stays open\n"
      "< from X: \"\\n\"\n"
      "> close X\n",
      RunShell("relayctl decode --brief --file /tmp/e2e/lines").output);
}

TEST_F(CommandsTest, PlacesAsJson) {
  const Outcome outcome = RunShell("relayctl suggest --places --json");
  EXPECT_TRUE(outcome.output.starts_with(
      "{\"event\":\"place\",\"port\":\"#USBSerialPort0\",\"place\":\"/devices/"))
      << outcome.output;
  EXPECT_EQ(6, std::count(outcome.output.begin(), outcome.output.end(), '\n')) << outcome.output;
}

}  // namespace
