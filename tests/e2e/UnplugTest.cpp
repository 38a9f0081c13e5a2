// SPDX-License-Identifier: MIT
// Devices that are unplugged and plugged in again under an open port.
#include <csignal>

#include "e2e/ServiceTest.h"

namespace {

constexpr const char* kDeviceClosed =
    "1 SerialPortHandler SerialPort.cpp 4 Close serial device. [Port /dev/ttyS2]";

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
