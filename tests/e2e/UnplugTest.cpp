// SPDX-License-Identifier: MIT
// Devices that are unplugged and plugged in again under an open port.
#include <csignal>
#include <fstream>
#include <thread>

#include "e2e/ServiceTest.h"

namespace {

using std::chrono::milliseconds;

constexpr const char* kDeviceClosed =
    "1 SerialPortHandler SerialPort.cpp 4 Close serial device. [Port /dev/ttyS2]";
constexpr const char* kCannotOpen =
    "1 SerialPortHandler SerialPort.cpp 4 Cannot open serial device. [Port /dev/ttyS2]";
constexpr const char* kSendFailed =
    "1 SerialPortHandler SerialPortHandler.cpp 4 Serial Device Send Error.";

class UnplugTest : public ServiceTest {
 protected:
  // Waits until the port knows. A write between the hang-up and that moment is offered again until
  // the device is back.
  void Unplug(size_t times = 1) {
    device->Unplug();
    ASSERT_TRUE(LogFile::Shows(kDeviceClosed, times));
  }

  void ExpectDataBothWays() {
    ASSERT_TRUE(device->Sends("A"));
    EXPECT_EQ(Wire("0019 04 02 000E '#PhysicalPort0' 01 02 0001 'A'"), relay->NextPacket());
    relay->Sends("0019 04 02 000E '#PhysicalPort0' 01 01 0001 'B'");
    EXPECT_EQ("B", device->Reads(1));
  }
};

TEST_F(UnplugTest, TheDescriptorIsLetGoWithinHalfASecond) {
  StartWithOpenPort();
  const std::string node = device->Node();
  ASSERT_TRUE(service->Holds(node));
  const milliseconds taken = TimeOf([&] {
    device->Unplug();
    EXPECT_TRUE(Eventually([&] { return !service->Holds(node); }));
  });
  EXPECT_LT(taken, milliseconds(500));
}

// The port looks for its device every 500 ms.
TEST_F(UnplugTest, AReplugIsNoticedAboutHalfASecondLater) {
  StartWithOpenPort();
  Unplug();
  const milliseconds taken = TimeOf([&] {
    device->Plug();
    EXPECT_TRUE(Service::Prints("OPEN[/dev/ttyS2]\n", 2));
  });
  EXPECT_LT(taken, milliseconds(2500));
}

TEST_F(UnplugTest, TwentyReplugsAreAllSurvived) {
  StartWithOpenPort();
  for (size_t round = 1; round <= 20; ++round) {
    Unplug(round);
    device->Plug();
    ASSERT_TRUE(Service::Prints("OPEN[/dev/ttyS2]\n", round + 1));
    ExpectDataBothWays();
  }
}

// The line takes no more while the far end does not read, so the write hangs when it is unplugged.
TEST_F(UnplugTest, AWriteThatAnUnplugInterruptsGoesOnAtTheReplug) {
  StartWithOpenPort();
  relay->Sends("F018 04 02 000E '#PhysicalPort0' 01 01 F000" + HexOf(std::string(0xF000, 'x')));
  ASSERT_EQ("x", device->Reads(1));
  Unplug();
  device->Plug();
  EXPECT_EQ("xxxx", device->Reads(4));
  relay->Sends(kFence);
  EXPECT_TRUE(Eventually([&] {
    (void)device->ReadsWaiting();
    return LogFile::Count("3 SerialPortHandler SerialPortHandler.cpp 4 close command proc.") == 1;
  }));
  EXPECT_EQ(Wire(kFenceReply), relay->NextPacket());
}

long ProcessorTicks(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string skipped;
  long user = 0;
  long system = 0;
  std::getline(file, skipped, ')');
  for (int field = 0; field < 11; ++field) {
    file >> skipped;
  }
  file >> user >> system;
  return user + system;
}

// A hung-up line reads as empty at once; taken for an idle one it would be read for ever.
TEST_F(UnplugTest, AnUnpluggedPortCostsNextToNoProcessorTime) {
  StartWithOpenPort();
  Unplug();
  const long before = ProcessorTicks(service->Pid());
  std::this_thread::sleep_for(milliseconds(1500));  // the cost of a time is what is looked at
  EXPECT_LT(ProcessorTicks(service->Pid()) - before, 30);  // of 150
}

// A service under most supervisors leads a session. The line that it opens must not become its
// controlling terminal: the hang-up would be a SIGHUP, a request to stop.
TEST_F(UnplugTest, AServiceThatLeadsASessionSurvivesTheHangUpOfItsPort) {
  StartWithOpenPort(Service::Session::kOwn);
  Unplug();
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  device->Plug();
  ASSERT_TRUE(Service::Prints("OPEN[/dev/ttyS2]\n", 2));
  ExpectDataBothWays();
  EXPECT_EQ("still running", service->State());
  EXPECT_EQ(0U, LogFile::Count(kStopRequested));
  EXPECT_EQ("exit 0", Stop(SIGHUP));
  EXPECT_TRUE(Service::Errors().ends_with("終了\n"));
}

TEST_F(UnplugTest, AServiceThatLeadsASessionStartsWithoutPseudoTerminalsAsAnyOther) {
  ASSERT_EQ(0, unlink("/dev/ptmx"));
  StartService(Service::Session::kOwn);
  ASSERT_TRUE(Service::Prints("[LISTEN]IP:"));
  EXPECT_EQ((std::vector<std::string>{kStarted}), LogFile::Lines());
}

}  // namespace
