// SPDX-License-Identifier: MIT
// Every line on the console and in the log, and nothing else.
#include <csignal>

#include "e2e/ServiceTest.h"

namespace {

class LogTest : public ServiceTest {};

TEST_F(LogTest, TheLogTellsTheWholeStory) {
  StartWithOpenPort();
  relay->Sends("001B 04 02 000E '#PhysicalPort0' 01 01 0003 'ABC'");
  EXPECT_EQ("ABC", device->Reads(3));
  EXPECT_EQ(Wire(kPort0Closed), relay->Answer(kClosePort0));
  device->Unplug();
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0004"), relay->Answer(kOpenPort0));
  relay->Sends("0007 03 02 0001 'X'");
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_EQ("exit 0", Stop(SIGTERM));
  const std::string core = "SerialPortHandler SerialPortHandler.cpp 4 ";
  const std::string port = "SerialPortHandler SerialPort.cpp 4 ";
  EXPECT_EQ((std::vector<std::string>{
                "3 " + core + "Serial Port Handler start running.",
                "3 " + core + "open command proc.",
                "3 " + core + "data command proc.",
                "3 " + core + "close command proc.",
                "3 " + core + "open command proc.",
                "1 " + port + "Cannot open serial device. [Port /dev/ttyS2]",
                "1 " + core + "Command parse failed.",
                "3 " + core + "close command proc.",
                "3 " + core + "request stop.",
                // The receive thread waits for the relay; closing the stream does not wake it.
                "1 LinuxThread Linux/LinuxThread.cpp 4 error: thread can not join",
                "3 " + core + "Serial Port Handler stop.",
            }),
            LogFile::Lines());
}

}  // namespace
