// SPDX-License-Identifier: MIT
// With the machine's own udevadm (Debian's package udev) and whatever database it has.
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "e2e/ServiceTest.h"
#include "serial/UsbPlaces.h"

namespace {

constexpr const char* kDump = "/tmp/e2e/dump";

class RealUdevTest : public ServiceTest {
 protected:
  void SetUp() override {
    for (const char* const candidate : {"/usr/bin/udevadm", "/bin/udevadm", "/sbin/udevadm"}) {
      if (tool.empty() && access(candidate, X_OK) == 0) {
        tool = candidate;
      }
    }
    ASSERT_NE("", tool) << "There is no udevadm: install the package udev.";
    Wrap();
    configuration.Port("#USBSerialPort0", "9600 8 none 1 none");
  }

  // The real tool, with a copy of what it says for the test.
  void Wrap() const {
    const std::string wrapper = std::string(workplace::kPrograms) + "/udevadm";
    workplace::WriteWhole(wrapper,
                          "#!/bin/sh\n" + tool + " \"$@\" | tee " + kDump + "\n" + appended + "\n");
    std::filesystem::permissions(wrapper, std::filesystem::perms::owner_all);
  }

  static std::string Dump() { return workplace::ReadWhole(kDump); }

  std::string tool;
  std::string appended;  // to the tool's output, as a command
};

// If this machine does have an adapter at that place, the sandbox's /dev has no node for it.
TEST_F(RealUdevTest, TheRealDatabaseIsSearchedByPlace) {
  StartLinked();
  const std::string reply = relay->Answer("0015 01 02 000F '#USBSerialPort0'");
  const bool isPlugged = Dump().find(std::string("P: ") + kUsbPlaces[0] + "/") != std::string::npos;
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0'") + (isPlugged ? "0004" : "0002"), reply);
  EXPECT_NE(std::string::npos, Dump().find("P: /devices/")) << Dump().substr(0, 400);
  EXPECT_FALSE(std::filesystem::exists("/tmp/deviceinfo.txt"));
}

TEST_F(RealUdevTest, AnAdapterBehindTheWholeRealDatabaseIsFoundByItsIds) {
  udev.AddAdapterAtPort(0, "/dev/ttyUSB0", "0000", "fffe");
  appended = "cat /tmp/e2e/udev-database";
  Wrap();
  StartLinked();
  EXPECT_EQ(Wire("000A 02 01 0000 FFFE 0002"), relay->Answer("0008 02 01 0000 FFFE"));
  EXPECT_FALSE(std::filesystem::exists("/tmp/deviceinfo.txt"));
  EXPECT_NE(std::string::npos, Dump().find("P: /devices/")) << Dump().substr(0, 400);
}

TEST_F(RealUdevTest, AnAdapterThatNoMachineHasEndsTheProcess) {
  StartLinked();
  relay->Sends("0008 02 01 0000 0000");
  EXPECT_EQ("signal " + std::to_string(SIGABRT), service->WaitForExit());
  EXPECT_TRUE(Service::PrintsError("std::logic_error"));
  EXPECT_NE(std::string::npos, Dump().find("P: /devices/")) << Dump().substr(0, 400);
}

}  // namespace
