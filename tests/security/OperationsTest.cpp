// SPDX-License-Identifier: MIT
// What docs/operations.md tells of faults whose signs an operator has to know.
#include <csignal>
#include <filesystem>

#include "e2e/ServiceTest.h"

namespace {

class OperationsTest : public ServiceTest {};

TEST_F(OperationsTest, AMissingUdevadmShowsOnStandardErrorAndANumberedCloseEndsTheProcess) {
  configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
  // What comes first in PATH is what runs: here it is what a shell says of a missing program.
  workplace::WriteWhole("/tmp/e2e/bin/udevadm", "#!/bin/sh\nexec no-such-udevadm\n");
  std::filesystem::permissions("/tmp/e2e/bin/udevadm", std::filesystem::perms::owner_all);
  StartLinked();
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0002"),
            relay->Answer("0015 01 02 000F '#USBSerialPort0'"));
  EXPECT_TRUE(Service::PrintsError("not found"));
  relay->Sends("0008 02 01 0403 6001");
  EXPECT_EQ("signal 6", service->WaitForExit());
  EXPECT_TRUE(Service::PrintsError("std::logic_error"));
  EXPECT_EQ("3 SerialPortHandler SerialPortHandler.cpp 4 close command proc.",
            LogFile::Lines().back());
}

TEST_F(OperationsTest, AStopEndsAWriteThatIsOfferedAgainForAnAbsentAdapter) {
  StartWithOpenPort();
  // More than the line holds, so that the unplug finds the command under way.
  const std::string data(60000, 'd');
  relay->SendsBytes(std::string("\xEA\x78\x04\x02\x00\x0E#PhysicalPort0\x01\x01\xEA\x60", 24) +
                    data);
  EXPECT_EQ(1000U, device->Reads(1000).size());
  ASSERT_TRUE(Eventually([this] { return service->IsIdle(); }));  // the line takes no more
  device->Unplug();
  ASSERT_TRUE(Service::Prints(")port close\n"));
  relay->Sends(kFence);
  service->Signal(SIGTERM);
  EXPECT_EQ("exit 0", service->WaitForExit());
  EXPECT_EQ("closed", relay->NextPacket());  // the fence was never answered
}

}  // namespace
