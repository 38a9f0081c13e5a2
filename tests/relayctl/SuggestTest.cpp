// SPDX-License-Identifier: MIT
// Which name reaches which adapter, on saved databases and on a machine that changes.
#include <gtest/gtest.h>

#include "e2e/support/Workplace.h"
#include "machine/MachineConfiguration.h"
#include "machine/Suggest.h"
#include "machine/UdevSnapshot.h"

namespace {

UdevSnapshot Saved(const std::string& name) {
  return UdevSnapshot(workplace::ReadWhole(std::string(SPH_TEST_DATA) + "/" + name));
}

// An adapter's two records, as short as they can be.
std::string Adapter(const std::string& place, const std::string& name,
                    const std::string& product = "6001") {
  const std::string ids = "E: ID_BUS=usb\nE: ID_VENDOR_ID=0403\nE: ID_MODEL_ID=" + product + "\n\n";
  return "P: " + place + "\nN: bus/usb/002/002\nE: DEVNAME=/dev/bus/usb/002/002\n" + ids +
         "P: " + place + "/1:1.0/" + name + "/tty/" + name + "\nN: " + name + "\nE: DEVNAME=/dev/" +
         name + "\n" + ids;
}

constexpr const char* kPlace0 = "/devices/pci0000:00/0000:00:1d.2/usb4/4-1";
constexpr const char* kPlace1 = "/devices/pci0000:00/0000:00:1d.2/usb4/4-2";

std::string NamesOf(const UdevSnapshot& snapshot) {
  std::string names;
  for (const SerialAdapter& adapter : snapshot.Adapters()) {
    names += adapter.node + "=" + adapter.portName + " ";
  }
  return names;
}

std::string Look(AdapterWatch& watch, const std::string& database) {
  std::string text;
  for (const AdapterChange& change : watch.Look(UdevSnapshot(database))) {
    text += "=+-"[static_cast<int>(change.kind)] + change.adapter.node + " ";
  }
  return text;
}

TEST(UdevSnapshotTest, NamesTheAdaptersOfAMachineWithSix) {
  EXPECT_EQ(
      "/dev/ttyUSB0=#USBSerialPort5 /dev/ttyUSB1=#USBSerialPort3 /dev/ttyUSB2=#USBSerialPort4 "
      "/dev/ttyUSB3=#USBSerialPort2 /dev/ttyUSB4=#USBSerialPort0 /dev/ttyUSB5=#USBSerialPort1 ",
      NamesOf(Saved("udev-db-six-adapters.txt")));
}

TEST(UdevSnapshotTest, NamesNoAdapterOfAMachineWithOtherPlaces) {
  EXPECT_EQ("/dev/ttyUSB0= /dev/ttyUSB1= ", NamesOf(Saved("udev-db-arm-board.txt")));
}

TEST(UdevSnapshotTest, TellsAllAboutAnAdapter) {
  const SerialAdapter adapter = Saved("udev-db-six-adapters.txt").Adapters().front();
  EXPECT_EQ("/devices/pci0000:00/0000:00:1d.0/usb2/2-1", adapter.place);
  EXPECT_EQ("0403", adapter.vendorId);
  EXPECT_EQ("6001", adapter.productId);
  EXPECT_EQ("QEMU", adapter.vendor);
  EXPECT_EQ("QEMU_USB_SERIAL", adapter.model);
  EXPECT_EQ("1-0000:00:1d.7-1", adapter.serialNumber);
  EXPECT_EQ("ftdi_sio", adapter.driver);
}

TEST(UdevSnapshotTest, TheFirstOfTwoBehindOneConnectorHidesTheOther) {
  const std::string hub = kPlace0;
  const std::vector<SerialAdapter> adapters =
      UdevSnapshot(Adapter(hub + "/4-1.1", "ttyUSB0") + Adapter(hub + "/4-1.2", "ttyUSB1"))
          .Adapters();
  ASSERT_EQ(2u, adapters.size());
  EXPECT_EQ("#USBSerialPort0", adapters[0].portName);
  EXPECT_EQ(hub + "/4-1.1", adapters[0].place);
  EXPECT_EQ("", adapters[1].portName);
  EXPECT_EQ("/dev/ttyUSB0", adapters[1].hiddenBy);
  EXPECT_NE(std::string::npos, Explain(adapters[1], nullptr).find("leads to /dev/ttyUSB0"));
}

TEST(UdevSnapshotTest, TakesAnythingForADatabase) {
  EXPECT_TRUE(UdevSnapshot("").Adapters().empty());
  EXPECT_TRUE(UdevSnapshot("\n\n\nE: A=b\nP:\nE:\nE: =\nE: x\n").Adapters().empty());
  EXPECT_EQ("", UdevSnapshot("").NodeOfPort(0));
  EXPECT_EQ("", UdevSnapshot("P: /x\n").NodeOfPort(-1));
}

TEST(UsbPlaceTest, IsTheLastConnectorOfAPath) {
  EXPECT_EQ("/devices/usb4/4-1", UsbPlaceOf("/devices/usb4/4-1/4-1:1.0/ttyUSB0/tty/ttyUSB0"));
  EXPECT_EQ("/d/4-1/4-1.2", UsbPlaceOf("/d/4-1/4-1.2/4-1.2:1.0/ttyUSB0"));
  EXPECT_EQ("", UsbPlaceOf("/devices/platform/serial8250/tty/ttyS2"));
  EXPECT_EQ("", UsbPlaceOf(""));
}

TEST(SuggestTest, TellsWhatIsPluggedAndUnplugged) {
  AdapterWatch watch;
  const std::string one = Adapter(kPlace0, "ttyUSB0");
  const std::string two = Adapter(kPlace1, "ttyUSB1");
  EXPECT_EQ("=/dev/ttyUSB0 ", Look(watch, one));
  EXPECT_EQ("", Look(watch, one));
  EXPECT_EQ("+/dev/ttyUSB1 ", Look(watch, one + two));
  EXPECT_EQ("-/dev/ttyUSB0 ", Look(watch, two));
  EXPECT_EQ("-/dev/ttyUSB1 ", Look(watch, ""));
}

TEST(SuggestTest, AnotherAdapterAtTheSameNodeIsAChange) {
  AdapterWatch watch;
  (void)Look(watch, Adapter(kPlace0, "ttyUSB0"));
  EXPECT_EQ("-/dev/ttyUSB0 +/dev/ttyUSB0 ", Look(watch, Adapter(kPlace1, "ttyUSB0")));
  EXPECT_EQ("-/dev/ttyUSB0 +/dev/ttyUSB0 ", Look(watch, Adapter(kPlace1, "ttyUSB0", "6015")));
}

TEST(ExplainTest, TellsIdsPlaceAndName) {
  EXPECT_EQ(
      "/dev/ttyUSB0  0403:6001\n"
      "  place: /devices/pci0000:00/0000:00:1d.2/usb4/4-1\n"
      "  name:  #USBSerialPort0",
      Explain(UdevSnapshot(Adapter(kPlace0, "ttyUSB0")).Adapters().front(), nullptr));
}

TEST(ExplainTest, TellsThatTheNameIsNotConfigured) {
  MachineConfiguration configuration;
  configuration.path = "/etc/vost.conf";
  const SerialAdapter adapter = UdevSnapshot(Adapter(kPlace0, "ttyUSB0")).Adapters().front();
  EXPECT_NE(std::string::npos,
            Explain(adapter, &configuration).find("no section [#USBSerialPort0]"));
  configuration.ports.push_back({"#USBSerialPort0", {}, {}});
  EXPECT_EQ(std::string::npos, Explain(adapter, &configuration).find("no section"));
}

TEST(ExplainTest, AnAdapterCannotSteerTheTerminal) {
  SerialAdapter adapter;
  adapter.node = "/dev/ttyUSB0";
  adapter.model = "\033[2J\007";
  EXPECT_EQ(std::string::npos, Explain(adapter, nullptr).find('\033'));
  EXPECT_NE(std::string::npos, Explain(adapter, nullptr).find("\\e[2J\\a"));
}

}  // namespace
