// SPDX-License-Identifier: MIT
// Open and close commands and every status that answers them.
#include <fstream>

#include "e2e/ServiceTest.h"

namespace {

constexpr const char* kOpenLogged =
    "3 SerialPortHandler SerialPortHandler.cpp 4 open command proc.";
constexpr const char* kNoPath =
    "1 SerialPortHandler SerialPort.cpp 4 Cannot open serial device. [Port ]";
constexpr const char* kNoDevice =
    "1 SerialPortHandler SerialPort.cpp 4 Cannot open serial device. [Port /dev/ttyS2]";

TEST_F(ServiceTest, OpeningAPortIsAnsweredWithStatus0) {
  device = std::make_unique<Device>();
  StartLinked();
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0000"),
            relay->Answer("0014 01 02 000E '#PhysicalPort0'"));
  EXPECT_TRUE(service->Holds(device->Node()));
  EXPECT_TRUE(Service::Prints("OPEN[/dev/ttyS2]\n"));
  EXPECT_EQ(1U, LogFile::Count(kOpenLogged));
}

TEST_F(ServiceTest, TheParameterOfAnOpenIsNotEchoed) {
  device = std::make_unique<Device>();
  StartLinked();
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0000"),
            relay->Answer("0016 01 02 000E '#PhysicalPort0' 0005"));
}

TEST_F(ServiceTest, ANameEndsAtItsFirstZeroByte) {
  device = std::make_unique<Device>();
  StartLinked();
  EXPECT_EQ(Wire(kPort0Opened), relay->Answer("0018 01 02 0012 '#PhysicalPort0' 00 'USB'"));
}

TEST_F(ServiceTest, OpeningAnOpenPortIsAnsweredWithStatus3AndTheFirstStaysOpen) {
  StartWithOpenPort();
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0003"), relay->Answer(kOpenPort0));
  ASSERT_TRUE(device->Sends("A"));
  EXPECT_EQ(Wire("0019 04 02 000E '#PhysicalPort0' 01 02 0001 'A'"), relay->NextPacket());
  EXPECT_EQ(Wire(kPort0Closed), relay->Answer(kClosePort0));
  EXPECT_EQ("[LISTEN]IP:127.0.0.1(PORT:60004)\n[ACCEPT]IP:127.0.0.1\nOPEN[/dev/ttyS2]\n",
            Service::Output());
}

TEST_F(ServiceTest, ANumberedOpenIsAnsweredWithStatus2AndOpensNothing) {
  const Device adapter("/dev/ttyUSB0");
  udev.AddAdapterAtPort(0, "/dev/ttyUSB0", "0403", "6001");
  StartLinked();
  EXPECT_EQ(Wire("000A 01 01 0403 6001 0002"), relay->Answer("0008 01 01 0403 6001"));
  EXPECT_EQ(Wire("000A 01 01 0003 0007 0002"), relay->Answer("000A 01 01 0003 0007 0005"));
  EXPECT_FALSE(service->Holds(adapter.Node()));
  EXPECT_EQ(0U, UdevDatabase::Runs());
}

TEST_F(ServiceTest, OpeningAnUnconfiguredNameIsAnsweredWithStatus2) {
  StartLinked();
  EXPECT_EQ(Wire("0010 01 02 0008 'Modem 01' 0002"), relay->Answer("000E 01 02 0008 'Modem 01'"));
}

TEST_F(ServiceTest, OpeningAPortWithAnIncompleteConfigurationIsAnsweredWithStatus2) {
  Configuration::Text("[#PhysicalPort0]\nbaud = 9600\ndata = 8\nparity = none\nstop = 1\n");
  device = std::make_unique<Device>();
  StartLinked();
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0002"), relay->Answer(kOpenPort0));
}

TEST_F(ServiceTest, OpeningANameThatLeadsToNoDeviceIsAnsweredWithStatus2) {
  configuration.Port("#PhysicalPort1", "9600 8 none 1 none");
  configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
  configuration.Port("#USBSerialPort6", "9600 8 none 1 none");
  StartLinked();
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort1' 0002"),
            relay->Answer("0014 01 02 000E '#PhysicalPort1'"));
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0002"),
            relay->Answer("0015 01 02 000F '#USBSerialPort0'"));
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort6' 0002"),
            relay->Answer("0015 01 02 000F '#USBSerialPort6'"));
  EXPECT_EQ(3U, LogFile::Count(kNoPath));
}

TEST_F(ServiceTest, OpeningAPortWithoutItsDeviceNodeIsAnsweredWithStatus4) {
  StartLinked();
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0004"), relay->Answer(kOpenPort0));
  EXPECT_EQ(1U, LogFile::Count(kNoDevice));
}

TEST_F(ServiceTest, OpeningANodeThatIsNoTerminalIsAnsweredWithStatus4) {
  std::ofstream("/dev/ttyS2") << "text";
  StartLinked();
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0004"), relay->Answer(kOpenPort0));
  EXPECT_FALSE(service->Holds("/dev/ttyS2"));
}

TEST_F(ServiceTest, APortThatCouldNotBeOpenedCanBeOpenedLater) {
  StartLinked();
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0004"), relay->Answer(kOpenPort0));
  device = std::make_unique<Device>();
  EXPECT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
}

TEST_F(ServiceTest, ClosingAPortThatIsNotOpenIsAnsweredWithStatus2) {
  StartLinked();
  EXPECT_EQ(Wire("0016 02 02 000E '#PhysicalPort0' 0002"), relay->Answer(kClosePort0));
  EXPECT_EQ(Wire("0016 02 02 000E '#PhysicalPort1' 0002"),
            relay->Answer("0014 02 02 000E '#PhysicalPort1'"));
}

TEST_F(ServiceTest, ClosingAnOpenPortIsAnsweredWithStatus0AndLaterDataAreDropped) {
  StartWithOpenPort();
  EXPECT_EQ(Wire("0016 02 02 000E '#PhysicalPort0' 0000"),
            relay->Answer("0016 02 02 000E '#PhysicalPort0' 0005"));
  EXPECT_FALSE(service->Holds(device->Node()));
  relay->Sends("001B 04 02 000E '#PhysicalPort0' 01 01 0003 'ABC'");
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_EQ("", device->ReadsWaiting());
}

TEST_F(ServiceTest, AClosedPortCanBeOpenedAgain) {
  StartWithOpenPort();
  EXPECT_EQ(Wire(kPort0Closed), relay->Answer(kClosePort0));
  EXPECT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  ASSERT_TRUE(device->Sends("A"));
  EXPECT_EQ(Wire("0019 04 02 000E '#PhysicalPort0' 01 02 0001 'A'"), relay->NextPacket());
}

TEST_F(ServiceTest, TheConfigurationIsReadAtEachOpen) {
  StartWithOpenPort();
  EXPECT_EQ(Wire(kPort0Closed), relay->Answer(kClosePort0));
  configuration.Port("#PhysicalPort0", "115200 8 none 1 none");
  EXPECT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  const termios settings = device->Settings();
  EXPECT_EQ(speed_t{B115200}, cfgetospeed(&settings));
}

}  // namespace
