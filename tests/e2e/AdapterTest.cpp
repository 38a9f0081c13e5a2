// SPDX-License-Identifier: MIT
// USB adapters: found by their place for an open, by their ids for close and data.
#include <csignal>
#include <filesystem>

#include "e2e/ServiceTest.h"
#include "serial/UsbPlaces.h"

namespace {

class TopologyTest : public ServiceTest, public testing::WithParamInterface<unsigned> {};

TEST_P(TopologyTest, EachUsbPortLeadsToTheAdapterAtItsPlace) {
  const std::string number = std::to_string(GetParam());
  configuration.Port("#USBSerialPort" + number, "9600 8 none 1 none");
  for (unsigned port = 0; port < kUsbPortCount; ++port) {
    udev.AddAdapterAtPort(port, "/dev/ttyUSB" + std::to_string(9 - port));
  }
  device = std::make_unique<Device>("/dev/ttyUSB" + std::to_string(9 - GetParam()));
  StartLinked();
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort" + number + "' 0000"),
            relay->Answer("0015 01 02 000F '#USBSerialPort" + number + "'"));
  ASSERT_TRUE(device->Sends("\r\n"));
  EXPECT_EQ(Wire("001B 04 02 000F '#USBSerialPort" + number + "' 01 02 0002 0D0A"),
            relay->NextPacket());
  EXPECT_EQ(1U, UdevDatabase::Runs());
}

INSTANTIATE_TEST_SUITE_P(Ports, TopologyTest, testing::Range(0U, unsigned{kUsbPortCount}));

TEST_F(ServiceTest, AnAdapterPluggedInLaterIsFoundByTheNextOpen) {
  configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
  StartLinked();
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0002"),
            relay->Answer("0015 01 02 000F '#USBSerialPort0'"));
  udev.AddAdapterAtPort(0, "/dev/ttyUSB0");
  device = std::make_unique<Device>("/dev/ttyUSB0");
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0000"),
            relay->Answer("0015 01 02 000F '#USBSerialPort0'"));
}

TEST_F(ServiceTest, ASearchLeavesNoFileBehind) {
  configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
  udev.AddAdapterAtPort(0, "/dev/ttyUSB0");
  StartLinked();
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0004"),
            relay->Answer("0015 01 02 000F '#USBSerialPort0'"));
  EXPECT_EQ(Wire("000A 02 01 0403 6001 0002"), relay->Answer("0008 02 01 0403 6001"));
  EXPECT_FALSE(std::filesystem::exists("/tmp/deviceinfo.txt"));
}

TEST_F(ServiceTest, ANumberedCloseOfAPresentAdapterIsAnsweredWithStatus2) {
  udev.AddAdapterAtPort(0, "/dev/ttyUSB0", "0003", "0007");
  StartLinked();
  EXPECT_EQ(Wire("000A 02 01 0003 0007 0002"), relay->Answer("000A 02 01 0003 0007 0005"));
}

TEST_F(ServiceTest, NumberedCommandsDoNotReachAPortThatIsOpenByName) {
  configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
  udev.AddAdapterAtPort(0, "/dev/ttyUSB0", "0403", "6001");
  device = std::make_unique<Device>("/dev/ttyUSB0");
  StartLinked();
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0000"),
            relay->Answer("0015 01 02 000F '#USBSerialPort0'"));
  relay->Sends("000F 04 01 0403 6001 01 01 0003 'ABC'");
  EXPECT_EQ(Wire("000A 02 01 0403 6001 0002"), relay->Answer("0008 02 01 0403 6001"));
  relay->Sends("001A 04 02 000F '#USBSerialPort0' 01 01 0001 'D'");
  EXPECT_EQ("D", device->Reads(1));
}

TEST_F(ServiceTest, ANumberedCloseOfAnAbsentAdapterEndsTheProcess) {
  udev.AddAdapterAtPort(0, "/dev/ttyUSB0", "0403", "6001");
  StartLinked();
  relay->Sends("0008 02 01 0403 6002");
  EXPECT_EQ("signal " + std::to_string(SIGABRT), service->WaitForExit());
  EXPECT_EQ(std::string::npos, Service::Errors().find("終了"));
}

TEST_F(ServiceTest, NumberedDataForAnAbsentAdapterEndTheProcess) {
  StartLinked();
  relay->Sends("0009 04 01 0403 6001 00");
  EXPECT_EQ("signal " + std::to_string(SIGABRT), service->WaitForExit());
}

TEST_F(ServiceTest, ANumberedCloseWithAnEmptyDatabaseEndsTheProcess) {
  udev.Text("");
  StartLinked();
  relay->Sends("0008 02 01 0403 6001");
  EXPECT_EQ("signal " + std::to_string(SIGABRT), service->WaitForExit());
}

}  // namespace
