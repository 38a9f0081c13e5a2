// SPDX-License-Identifier: MIT
// The list of devices at its fixed place, /tmp/deviceinfo.txt. When somebody has been there before:
// faults/SystemFaults.cpp and OtherOwnerTest.cpp.
#include <filesystem>
#include <set>

#include "e2e/ServiceTest.h"

namespace {

constexpr const char* kOpenUsb = "0015 01 02 000F '#USBSerialPort0'";
constexpr const char* kUsbOpened = "0017 01 02 000F '#USBSerialPort0' 0000";

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

}  // namespace
