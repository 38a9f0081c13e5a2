// SPDX-License-Identifier: MIT
// Which device node a port name or a pair of ids stands for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <stdexcept>

#include "serial/LinuxSerial.h"
#include "serial/PortNameResolver.h"
#include "support/UdevTool.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct NameCase {
  const char* name;
  const char* portName;
  const char* node;
};

void PrintTo(const NameCase& test, std::ostream* stream) { *stream << test.name; }

class PortNameTest : public testing::TestWithParam<NameCase> {
 protected:
  UdevTool udev;
};

TEST_P(PortNameTest, LeadsTo) {
  udev.Prints(RealDatabase("udev-db-six-adapters.txt"));
  EXPECT_EQ(GetParam().node, ResolvePortName(GetParam().portName));
  EXPECT_FALSE(std::filesystem::exists(kDumpFile));
}

std::string Name(const testing::TestParamInfo<NameCase>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(
    Physical, PortNameTest,
    testing::Values(NameCase{"Port0IsTheThirdUart", "#PhysicalPort0", "/dev/ttyS2"},
                    NameCase{"Port1LeadsNowhere", "#PhysicalPort1", ""},
                    NameCase{"Port2LeadsNowhere", "#PhysicalPort2", ""},
                    NameCase{"ABlankBehindTheNumber", "#PhysicalPort0 ", ""},
                    NameCase{"ABlankBeforeTheNumber", "#PhysicalPort 0", ""},
                    NameCase{"TextBehindTheNumber", "#PhysicalPort0x", ""},
                    NameCase{"ADotBehindTheNumber", "#PhysicalPort0.0", ""},
                    NameCase{"ATabBehindTheNumber", "#PhysicalPort0\t", ""},
                    NameCase{"ANewlineBehindTheNumber", "#PhysicalPort0\n", ""},
                    NameCase{"NoNumber", "#PhysicalPort", ""},
                    NameCase{"LeadingZeros", "#PhysicalPort000", "/dev/ttyS2"},
                    NameCase{"APlusSign", "#PhysicalPort+0", "/dev/ttyS2"},
                    NameCase{"AMinusSign", "#PhysicalPort-0", "/dev/ttyS2"},
                    NameCase{"ATabBeforeTheNumber", "#PhysicalPort\t0", "/dev/ttyS2"},
                    NameCase{"TwoSigns", "#PhysicalPort+-0", ""},
                    NameCase{"Overflow", "#PhysicalPort4294967296", ""},
                    NameCase{"Hexadecimal", "#PhysicalPort0x0", ""},
                    NameCase{"OtherCapitals", "#physicalport0", ""},
                    NameCase{"ABlankInFront", " #PhysicalPort0", ""}),
    Name);

INSTANTIATE_TEST_SUITE_P(
    Usb, PortNameTest,
    testing::Values(NameCase{"Port0", "#USBSerialPort0", "/dev/ttyUSB4"},
                    NameCase{"Port1", "#USBSerialPort1", "/dev/ttyUSB5"},
                    NameCase{"Port2", "#USBSerialPort2", "/dev/ttyUSB3"},
                    NameCase{"Port3", "#USBSerialPort3", "/dev/ttyUSB1"},
                    NameCase{"Port4", "#USBSerialPort4", "/dev/ttyUSB2"},
                    NameCase{"Port5", "#USBSerialPort5", "/dev/ttyUSB0"},
                    NameCase{"Port99IsOutOfRange", "#USBSerialPort99", ""},
                    NameCase{"Minus1IsOutOfRange", "#USBSerialPort-1", ""},
                    NameCase{"Port4294967296LeadsNowhere", "#USBSerialPort4294967296", ""},
                    NameCase{"Port4294967295LeadsNowhere", "#USBSerialPort4294967295", ""},
                    NameCase{"Port2147483648LeadsNowhere", "#USBSerialPort2147483648", ""},
                    NameCase{"MoreThan64Bits", "#USBSerialPort99999999999999999999999", ""},
                    // A negative number is taken modulo 2 to the 32nd.
                    NameCase{"Minus4294967295IsPort1", "#USBSerialPort-4294967295", "/dev/ttyUSB5"},
                    NameCase{"LeadingZeros", "#USBSerialPort0005", "/dev/ttyUSB0"},
                    NameCase{"APlusSign", "#USBSerialPort+5", "/dev/ttyUSB0"},
                    NameCase{"ATabBeforeTheNumber", "#USBSerialPort\t5", "/dev/ttyUSB0"},
                    NameCase{"ANewlineBeforeTheNumber", "#USBSerialPort\n5", "/dev/ttyUSB0"},
                    NameCase{"ATabBehindTheNumber", "#USBSerialPort5\t", ""},
                    NameCase{"ABlankBehindTheNumber", "#USBSerialPort0 ", ""},
                    NameCase{"ABlankBeforeTheNumber", "#USBSerialPort 0", ""},
                    NameCase{"TextBehindTheNumber", "#USBSerialPort0abc", ""},
                    NameCase{"NoNumber", "#USBSerialPort", ""}),
    Name);

INSTANTIATE_TEST_SUITE_P(Unknown, PortNameTest,
                         testing::Values(NameCase{"Empty", "", ""}, NameCase{"Blank", " ", ""},
                                         NameCase{"NoPrefix", "0", ""},
                                         NameCase{"ADeviceNode", "/dev/ttyS2", ""},
                                         NameCase{"NoHash", "USBSerialPort0", ""},
                                         NameCase{"Both", "#PhysicalPort#USBSerialPort0", ""}),
                         Name);

class PortNameResolverTest : public testing::Test {
 protected:
  static std::string Adapter(const std::string& devName) {
    return "P: /devices/pci0000:00/0000:00:1d.2/usb4/4-1\nN: x\nE: ID_BUS=usb\n"
           "E: ID_VENDOR_ID=0403\nE: ID_MODEL_ID=6001\nE: DEVNAME=" +
           devName + "\n\n";
  }

  static void ExpectNothingFound() {
    EXPECT_EQ("", ResolvePortName("#USBSerialPort0"));
    EXPECT_THROW((void)CLinuxSerial().FindUsbDevice(0x0403, 0x6001), std::logic_error);
  }

  UdevTool udev;
};

TEST_F(PortNameResolverTest, APhysicalNameAsksNoUdev) {
  udev.Prints(RealDatabase("udev-db-six-adapters.txt"));
  (void)ResolvePortName("#PhysicalPort0");
  (void)ResolvePortName("#PhysicalPort1");
  (void)ResolvePortName("nothing");
  EXPECT_THAT(udev.Runs(), IsEmpty());
}

TEST_F(PortNameResolverTest, AUsbNameDumpsTheDatabaseOnceAtEachResolution) {
  udev.Prints(Adapter("/dev/ttyUSB1"));
  udev.PrintsLater(Adapter("/dev/ttyUSB2"));
  EXPECT_EQ("/dev/ttyUSB1", ResolvePortName("#USBSerialPort0"));
  EXPECT_EQ("/dev/ttyUSB2", ResolvePortName("#USBSerialPort0"));
  EXPECT_THAT(udev.Runs(), ElementsAre("info --export-db", "info --export-db"));
}

// Both searches ignore what the dump and the removal report.
TEST_F(PortNameResolverTest, ADatabaseOfLessThan100BytesIsSearchedAllTheSame) {
  const std::string tiny =
      "P: /devices/x\nN: x\nE: DEVNAME=/dev/x\nE: ID_VENDOR_ID=0403\n"
      "E: ID_MODEL_ID=6001\n\n";
  ASSERT_GT(100U, tiny.size());
  udev.Prints(tiny);
  EXPECT_EQ("/dev/x", CLinuxSerial().FindUsbDevice(0x0403, 0x6001));
}

TEST_F(PortNameResolverTest, FindUsbDeviceFindsTheFirstAdapterAndRemovesTheDump) {
  udev.Prints(RealDatabase("udev-db-six-adapters.txt"));
  EXPECT_EQ("/dev/ttyUSB0", CLinuxSerial().FindUsbDevice(0x0403, 0x6001));
  EXPECT_THAT(udev.Runs(), ElementsAre("info --export-db"));
  EXPECT_FALSE(std::filesystem::exists(kDumpFile));
}

TEST_F(PortNameResolverTest, FindUsbDeviceThrowsForAnAbsentAdapterAndRemovesTheDump) {
  udev.Prints(RealDatabase("udev-db-six-adapters.txt"));
  EXPECT_THROW((void)CLinuxSerial().FindUsbDevice(0x0403, 0x6002), std::logic_error);
  EXPECT_FALSE(std::filesystem::exists(kDumpFile));
}

TEST_F(PortNameResolverTest, FindUsbDeviceOfARecordWithoutANodeIsEmpty) {
  udev.Prints(Adapter(""));
  EXPECT_EQ("", CLinuxSerial().FindUsbDevice(0x0403, 0x6001));
}

TEST_F(PortNameResolverTest, AMissingUdevadmLeadsNowhere) {
  udev.IsMissing();
  ExpectNothingFound();
  EXPECT_FALSE(std::filesystem::exists(kDumpFile));
}

TEST_F(PortNameResolverTest, AnEmptyDatabaseLeadsNowhere) {
  udev.Prints("");
  ExpectNothingFound();
}

TEST_F(PortNameResolverTest, AFolderInTheDumpsPlaceLeadsNowhere) {
  std::filesystem::create_directory(kDumpFile);
  udev.Prints(RealDatabase("udev-db-six-adapters.txt"));
  ExpectNothingFound();
}

}  // namespace
