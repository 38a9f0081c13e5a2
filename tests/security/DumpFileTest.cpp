// SPDX-License-Identifier: MIT
// The list of devices at its fixed place, /tmp/deviceinfo.txt, when somebody has been there before.
#include <sys/mount.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <set>

#include "e2e/ServiceTest.h"

namespace {

constexpr const char* kDump = "/tmp/deviceinfo.txt";
constexpr const char* kOpenUsb = "0015 01 02 000F '#USBSerialPort0'";
constexpr const char* kUsbOpened = "0017 01 02 000F '#USBSerialPort0' 0000";
constexpr const char* kUsbNotFound = "0017 01 02 000F '#USBSerialPort0' 0002";

// A list that somebody else composed: the adapter at place 0 is the node of his choice.
constexpr const char* kForgedList =
    "P: /devices/pci0000:00/0000:00:1d.2/usb4/4-1/4-1:1.0/ttyUSB0/tty/ttyUSB0\n"
    "N: ttyUSB0\n"
    "E: DEVNAME=/dev/of-his-choice\n"
    "E: ID_BUS=usb\n"
    "\n";

class DumpFileTest : public ServiceTest {
 protected:
  DumpFileTest() { configuration.Port("#USBSerialPort0", "9600 8 none 1 none"); }
};

std::set<std::string> InTmp() {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
    names.insert(entry.path());
  }
  return names;
}

TEST_F(DumpFileTest, NoSearchLeavesAFileInTmp) {
  udev.AddAdapterAtPort(0, "/dev/ttyUSB0");
  device = std::make_unique<Device>("/dev/ttyUSB0");
  const std::set<std::string> before = InTmp();
  StartLinked();
  EXPECT_EQ(Wire(kUsbOpened), relay->Answer(kOpenUsb));
  EXPECT_EQ(before, InTmp());
  EXPECT_EQ(Wire("000A 02 01 0403 6001 0002"), relay->Answer("0008 02 01 0403 6001"));
  EXPECT_EQ(before, InTmp());
  relay->Sends("0008 02 01 FFFF FFFF");
  EXPECT_EQ("signal 6", service->WaitForExit());
  EXPECT_EQ(before, InTmp());
}

// The target is overwritten, and only the link is removed.
TEST_F(DumpFileTest, ASymbolicLinkOfTheServicesOwnUserIsFollowed) {
  workplace::WriteWhole("/tmp/e2e/victim", "what was there before");
  std::filesystem::create_symlink("/tmp/e2e/victim", kDump);
  StartLinked();
  EXPECT_EQ(Wire(kUsbNotFound), relay->Answer(kOpenUsb));
  EXPECT_EQ("P: /devices/pci0000:00/0000:00:1d.0/usb2\n",
            workplace::ReadWhole("/tmp/e2e/victim").substr(0, 41));
  EXPECT_FALSE(std::filesystem::is_symlink(kDump));
}

// A read-only mount stands for every file that the service may read but not write.
TEST_F(DumpFileTest, AFileThatCannotBeReplacedIsBelieved) {
  const Device chosen("/dev/of-his-choice");
  workplace::WriteWhole(kDump, kForgedList);
  ASSERT_EQ(0, mount(kDump, kDump, nullptr, MS_BIND, nullptr));
  ASSERT_EQ(0, mount(nullptr, kDump, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr));
  StartLinked();
  EXPECT_EQ(Wire(kUsbOpened), relay->Answer(kOpenUsb));
  EXPECT_TRUE(service->Holds(chosen.Node()));
  EXPECT_EQ(kForgedList, workplace::ReadWhole(kDump));
}

TEST_F(DumpFileTest, AStopIsPossibleWhileAFifoHoldsUpTheCommand) {
  ASSERT_EQ(0, mkfifo(kDump, 0666));
  StartLinked();
  relay->Sends(kOpenUsb);
  ASSERT_TRUE(LogFile::Shows("3 SerialPortHandler SerialPortHandler.cpp 4 open command proc."));
  EXPECT_EQ("exit 0", Stop(SIGTERM));
}

}  // namespace
