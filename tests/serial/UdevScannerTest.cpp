// SPDX-License-Identifier: MIT
// Which record of a dump each search chooses.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <ostream>

#include "serial/UdevScanner.h"
#include "support/UdevTool.h"

namespace {

std::string Record(const std::string& path, const std::string& devName,
                   const std::string& bus = "usb", const std::string& vendor = "0403",
                   const std::string& product = "6001") {
  return "P: " + path + "\nN: x\nE: DEVNAME=" + devName + "\nE: ID_BUS=" + bus +
         "\nE: ID_VENDOR_ID=" + vendor + "\nE: ID_MODEL_ID=" + product + "\n\n";
}

constexpr const char* kFirstPlace = "/devices/pci0000:00/0000:00:1d.2/usb4/4-1";

class UdevScannerTest : public testing::Test {
 protected:
  void Dump(const std::string& text) { WriteText(kDumpFile, text); }

  std::string ByPlace(int index) {
    char node[kDevNameSize] = {};
    const int result = FindDeviceByPortIndex(index, node);
    return std::to_string(result) + " " + node;
  }
  std::string ByIds(unsigned vendor, unsigned product) {
    UdevRecord record;
    const int result = FindDeviceByIds(vendor, product, &record);
    return std::to_string(result) + " " + record.devName;
  }

  UdevTool udev;
};

struct Place {
  int index;
  const char* path;
};

constexpr Place kPlaces[] = {
    {0, "/devices/pci0000:00/0000:00:1d.2/usb4/4-1"},
    {1, "/devices/pci0000:00/0000:00:1d.2/usb4/4-2"},
    {2, "/devices/pci0000:00/0000:00:1d.1/usb3/3-2"},
    {3, "/devices/pci0000:00/0000:00:1d.0/usb2/2-2"},
    {4, "/devices/pci0000:00/0000:00:1d.1/usb3/3-1"},
    {5, "/devices/pci0000:00/0000:00:1d.0/usb2/2-1"},
};
static_assert(std::size(kPlaces) == kUsbPortCount, "each place has its row here");

void PrintTo(const Place& test, std::ostream* stream) { *stream << test.path; }

class UdevTopologyTest : public UdevScannerTest, public testing::WithParamInterface<Place> {};

TEST_P(UdevTopologyTest, IsTheAdapterBelowItsConnectorAlone) {
  const std::string elsewhere = Record("/devices/pci0000:00/0000:00:1d.9/usb9/9-1", "/dev/other");
  Dump(elsewhere + Record(std::string(GetParam().path) + "/tty/ttyUSB9", "/dev/ttyUSB9"));
  for (int index = 0; index < kUsbPortCount; ++index) {
    EXPECT_EQ(index == GetParam().index ? "1 /dev/ttyUSB9" : "0 ", ByPlace(index)) << index;
  }
}

TEST_P(UdevTopologyTest, IsSearchedInADumpThatTheCallerOpenedToo) {
  EXPECT_STREQ(GetParam().path, UsbPortPlace(GetParam().index));
  const std::string text = Record(GetParam().path, "/dev/ttyUSB9");
  WriteText(udev.Path("dump"), text);
  std::FILE* const dump = std::fopen(udev.Path("dump").c_str(), "re");
  ASSERT_NE(nullptr, dump);
  char node[kDevNameSize] = {};
  EXPECT_EQ(kDeviceFound, FindDeviceByPortIndex(dump, GetParam().index, node));
  EXPECT_STREQ("/dev/ttyUSB9", node);
  EXPECT_EQ(kDeviceSearchInvalid, FindDeviceByPortIndex(dump, kUsbPortCount, node));
  EXPECT_EQ(kDeviceSearchInvalid, FindDeviceByPortIndex(dump, 0, nullptr));
  (void)std::fclose(dump);
  EXPECT_EQ(nullptr, UsbPortPlace(-1));
  EXPECT_EQ(nullptr, UsbPortPlace(kUsbPortCount));
}

INSTANTIATE_TEST_SUITE_P(Port, UdevTopologyTest, testing::ValuesIn(kPlaces), [](const auto& test) {
  return "Connector" + std::to_string(test.param.index);
});

TEST_F(UdevScannerTest, AnIndexOutsideTheTopologyIsInvalid) {
  Dump(RealDatabase("udev-db-six-adapters.txt"));
  EXPECT_EQ("-1 ", ByPlace(-1));
  EXPECT_EQ("-1 ", ByPlace(kUsbPortCount));
}

TEST_F(UdevScannerTest, NoPlaceForTheNameOrTheRecordIsInvalid) {
  Dump(RealDatabase("udev-db-six-adapters.txt"));
  EXPECT_EQ(-1, FindDeviceByPortIndex(0, nullptr));
  EXPECT_EQ(-1, FindDeviceByIds(0x0403, 0x6001, nullptr));
}

TEST_F(UdevScannerTest, AMissingDumpFindsNothing) {
  std::filesystem::remove(kDumpFile);
  EXPECT_EQ("0 ", ByPlace(0));
  EXPECT_EQ("0 ", ByIds(0x0403, 0x6001));
}

struct SearchCase {
  const char* name;
  std::string dump;
  std::string byPlace;
  std::string byIds;
};

void PrintTo(const SearchCase& row, std::ostream* stream) { *stream << row.dump; }

class UdevScannerTable : public UdevScannerTest, public testing::WithParamInterface<SearchCase> {};

TEST_P(UdevScannerTable, Finds) {
  Dump(GetParam().dump);
  EXPECT_EQ(GetParam().byPlace, ByPlace(0));
  EXPECT_EQ(GetParam().byIds, ByIds(0x0403, 0x6001));
}

const std::string kFirst = kFirstPlace;
const std::string kRaw = Record(kFirst, "/dev/bus/usb/004/002");
const std::string kBehind = kFirst + "/4-1:1.0/ttyUSB4/tty/ttyUSB4";
const std::string kFits = "/dev/" + std::string(250, 'n');

const SearchCase kSearchCases[] = {
    {"ARawUsbNodeAlone", kRaw, "0 ", "0 "},
    {"TheSerialNodeBehindARawOne", kRaw + Record(kBehind, "/dev/x"), "1 /dev/x", "1 /dev/x"},
    {"AnotherBusFirst", Record(kFirst, "/dev/pci", "pci") + Record(kFirst, "/dev/usb"),
     "1 /dev/usb", "1 /dev/pci"},
    {"NoBus", Record(kFirst, "/dev/x", ""), "0 ", "1 /dev/x"},
    {"ABusThatBeginsWithUsb", Record(kFirst, "/dev/x", "usb-serial"), "1 /dev/x", "1 /dev/x"},
    {"ABusInCapitals", Record(kFirst, "/dev/x", "USB"), "0 ", "1 /dev/x"},
    {"BehindAHub", Record(kFirst + "/4-1.3/4-1.3:1.0/ttyUSB7", "/dev/x"), "1 /dev/x", "1 /dev/x"},
    // The prefix is compared as text, so the tenth connector of a hub matches the first.
    {"AConnectorWithTheSameFirstDigit", Record(kFirst + "0/tty", "/dev/x"), "1 /dev/x", "1 /dev/x"},
    {"TheFirstOfTwo", Record(kFirst, "/dev/1") + Record(kFirst, "/dev/2"), "1 /dev/1", "1 /dev/1"},
    {"NoNode", Record(kFirst, ""), "1 ", "1 "},
    {"AnIdWithoutItsZero", Record(kFirst, "/dev/short", "usb", "403") + Record(kFirst, "/dev/x"),
     "1 /dev/short", "1 /dev/x"},
    {"AnotherVendor", Record(kFirst, "/dev/x", "usb", "0404"), "1 /dev/x", "0 "},
    {"AnotherProduct", Record(kFirst, "/dev/x", "usb", "0403", "6002"), "1 /dev/x", "0 "},
    {"ANameOf255Characters", Record(kFirst, kFits), "1 " + kFits, "1 " + kFits},
    {"ANameOf256Characters", Record(kFirst, kFits + "n"), "0 ", "1 " + kFits + "n"},
};

INSTANTIATE_TEST_SUITE_P(Dumps, UdevScannerTable, testing::ValuesIn(kSearchCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(UdevScannerTest, IdsAreComparedInLowerCaseAndExactly) {
  Dump(Record(kFirstPlace, "/dev/upper", "usb", "ABCD", "0EF0") +
       Record(kFirstPlace, "/dev/longer", "usb", "abcd0", "0ef0") +
       Record(kFirstPlace, "/dev/lower", "usb", "abcd", "0ef0"));
  EXPECT_EQ("1 /dev/lower", ByIds(0xABCD, 0x0EF0));
}

TEST_F(UdevScannerTest, TheWholeRecordIsHandedOut) {
  Dump(RealDatabase("udev-db-arm-board.txt"));
  UdevRecord record;
  ASSERT_EQ(kDeviceFound, FindDeviceByIds(0x0403, 0x6001, &record));
  EXPECT_STREQ("0403", record.vendorId);
  EXPECT_STREQ("6001", record.modelId);
  EXPECT_STREQ("QEMU", record.vendor);
  EXPECT_STREQ("QEMU_USB_SERIAL", record.model);
  EXPECT_STREQ("/dev/ttyUSB0", record.devName);
  EXPECT_STREQ("usb", record.bus);
}

TEST_F(UdevScannerTest, AnArmBoardsAdaptersAreAtNoKnownPlace) {
  Dump(RealDatabase("udev-db-arm-board.txt"));
  for (int index = 0; index < kUsbPortCount; ++index) {
    EXPECT_EQ("0 ", ByPlace(index)) << index;
  }
  EXPECT_EQ("1 /dev/ttyUSB0", ByIds(0x0403, 0x6001));
}

}  // namespace
