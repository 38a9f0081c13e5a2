// SPDX-License-Identifier: MIT
// Faults of the serial device and of its line.
#include <fcntl.h>
#include <unistd.h>

#include <thread>

#include "faults/FaultTest.h"

namespace {

// The kernel hangs the near end up, as it does for TIOCVHANGUP (HangupTest.cpp), for good. The
// path stays, and leads nowhere.
void FarEndCloses(FaultTest& test) {
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  ASSERT_LE(0, dup3(null, test.device->FarEnd(), O_CLOEXEC));
  (void)close(null);
  ASSERT_TRUE(LogFile::Shows(kDeviceClosed));
  test.relay->Sends(kWriteB);
}

void ComesBackUnderAnotherName(FaultTest& test) {
  test.device->Unplug();
  ASSERT_TRUE(LogFile::Shows(kDeviceClosed));
  const Device other("/dev/ttyUSB7");
  test.relay->Sends(kWriteB);
}

void ComesBackAs(FaultTest& test, const std::string& command) {
  test.device->Unplug();
  ASSERT_TRUE(LogFile::Shows(kDeviceClosed));
  Shell(command);
  test.relay->Sends(kWriteB);
  ASSERT_TRUE(LogFile::Shows(kSendFailed));
  Shell("rm -r /dev/ttyS2");
  test.device->Plug();
  ASSERT_TRUE(Service::Prints("OPEN[/dev/ttyS2]\n", 2));
  test.ExpectDataBothWays();
}

void ComesBackAsAFile(FaultTest& test) { ComesBackAs(test, "echo text >/dev/ttyS2"); }
void ComesBackAsADirectory(FaultTest& test) { ComesBackAs(test, "mkdir /dev/ttyS2"); }
void ComesBackAsAFifo(FaultTest& test) { ComesBackAs(test, "mkfifo /dev/ttyS2"); }
void ComesBackAsNull(FaultTest& test) { ComesBackAs(test, "ln -s null /dev/ttyS2"); }

const std::string kLargeBlock =
    "F018 04 02 000E '#PhysicalPort0' 01 01 F000" + HexOf(std::string(0xF000, 'x'));

// The far end reads one byte, so as to know that the write has begun, and no more.
void LineTakesNothing(FaultTest& test) {
  test.relay->Sends(kLargeBlock);
  ASSERT_EQ("x", test.device->Reads(1));
  test.Settle();
}

void OpenWithXonXoff(FaultTest& test) {
  ASSERT_EQ(Wire(kPort0Closed), test.relay->Answer(kClosePort0));
  test.configuration.Port("#PhysicalPort0", "9600 8 none 1 XOnXOff");
  ASSERT_EQ(Wire(kPort0Opened), test.relay->Answer(kOpenPort0));
  ASSERT_TRUE(test.device->Sends("\x13"));
  // XOFF is the line's, not data: what comes behind it shows that it has taken effect.
  ASSERT_TRUE(test.device->Sends("A"));
  ASSERT_EQ(Wire(kReceivedA), test.relay->NextPacket());
}

void LineIsStoppedByXoff(FaultTest& test) {
  OpenWithXonXoff(test);
  test.relay->Sends(kWriteB);
  test.relay->Sends(kLargeBlock);
  ASSERT_TRUE(LogFile::Shows("3 SerialPortHandler SerialPortHandler.cpp 4 data command proc."));
  test.Settle();
  EXPECT_EQ("", test.device->ReadsWaiting());
}

void LineGoesOnAfterXon(FaultTest& test) {
  LineIsStoppedByXoff(test);
  ASSERT_TRUE(test.device->Sends("\x11"));
  EXPECT_EQ("B" + std::string(0xF000, 'x'), test.device->Reads(1 + 0xF000));
}

// The payload of a notification of #PhysicalPort0, in hex; empty for any other packet.
std::string PayloadOf(const std::string& packet) {
  constexpr size_t kHeader = size_t{2} * (2 + 1 + 1 + 2 + 14 + 1 + 1 + 2);
  const bool isNotification = packet.size() > kHeader && packet.substr(4, 2) == "04";
  return isNotification ? packet.substr(kHeader) : "";
}

void DeviceFloods(FaultTest& test) {
  std::string flood;
  for (int i = 0; flood.size() < 400000; ++i) {
    flood += std::to_string(i) + ",";
  }
  std::thread far([&] { EXPECT_TRUE(test.device->Sends(flood)); });
  for (int i = 0; i < 50; ++i) {
    test.relay->Sends(kFence);
  }
  std::string received;
  int answers = 0;
  std::string packet;
  const std::string wanted = HexOf(flood);
  while (received.size() < wanted.size() || answers < 50) {
    packet = test.relay->NextPacket();
    const std::string payload = PayloadOf(packet);
    received += payload;
    answers += packet == Wire(kFenceReply) ? 1 : 0;
    if (payload.empty() && packet != Wire(kFenceReply)) {
      ADD_FAILURE() << packet;
      break;
    }
  }
  far.join();
  EXPECT_TRUE(received == wanted);
  EXPECT_EQ(50, answers);
}

// clang-format off
const FaultRow kDeviceRows[] = {
    // name                     state           start    happens                   log                               outcome
    {"FarEndCloses",            State::kPortOpen, nullptr, FarEndCloses,             {kCannotOpenDevice, kSendFailed}, Outcome::kGoesOn},
    {"BackUnderAnotherName",    State::kPortOpen, nullptr, ComesBackUnderAnotherName,{kCannotOpenDevice, kSendFailed}, Outcome::kGoesOn},
    {"BackAsAFile",             State::kPortOpen, nullptr, ComesBackAsAFile,         {kCannotOpenDevice, kSendFailed}, Outcome::kGoesOn},
    {"BackAsADirectory",        State::kPortOpen, nullptr, ComesBackAsADirectory,    {kCannotOpenDevice, kSendFailed}, Outcome::kGoesOn},
    {"BackAsAFifo",             State::kPortOpen, nullptr, ComesBackAsAFifo,         {kCannotOpenDevice, kSendFailed}, Outcome::kGoesOn},
    {"BackAsNull",              State::kPortOpen, nullptr, ComesBackAsNull,          {kCannotOpenDevice, kSendFailed}, Outcome::kGoesOn},
    {"LineTakesNothing",        State::kPortOpen, nullptr, LineTakesNothing,         {}, Outcome::kStops},
    {"LineIsStoppedByXoff",     State::kPortOpen, nullptr, LineIsStoppedByXoff,      {}, Outcome::kStops},
    {"LineGoesOnAfterXon",      State::kPortOpen, nullptr, LineGoesOnAfterXon,       {}, Outcome::kGoesOn},
    {"DeviceFloods",            State::kPortOpen, nullptr, DeviceFloods,             {}, Outcome::kGoesOn},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Device, FaultTable, testing::ValuesIn(kDeviceRows), NameOf<FaultRow>);

}  // namespace
