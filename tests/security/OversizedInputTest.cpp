// SPDX-License-Identifier: MIT
// Input of every kind that is larger than it should be. The service refuses it and goes on.
#include "e2e/ServiceTest.h"

namespace {

class OversizedInputTest : public ServiceTest {
 protected:
  OversizedInputTest() { configuration.Port("#USBSerialPort0", "9600 8 none 1 none"); }

  std::string OpenUsb() { return relay->Answer("0015 01 02 000F '#USBSerialPort0'"); }
};

constexpr const char* kUsbNotFound = "0017 01 02 000F '#USBSerialPort0' 0002";

std::string AdapterWith(const std::string& property) {
  return "P: /devices/pci0000:00/0000:00:1d.2/usb4/4-1/tty\nN: tty\n" + property +
         "E: ID_BUS=usb\n\n";
}

TEST_F(OversizedInputTest, APortNameAsLongAsAPacketAllowsIsNoPort) {
  StartLinked();
  const std::string name(65529, 'n');
  relay->SendsBytes(std::string("\xFF\xFF\x01\x02\xFF\xF9", 6) + name);
  // The reply is two bytes longer than a length field can say: its own wraps round to 1.
  relay->Leaves();
  Link();
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_EQ(0U, LogFile::Count(kRefused));
}

TEST_F(OversizedInputTest, ABlockThatFillsTheLongestPacketIsWrittenWhole) {
  StartWithOpenPort();
  const std::string data(65511, 'd');
  relay->SendsBytes(std::string("\xFF\xFF\x04\x02\x00\x0E#PhysicalPort0\x01\x01\xFF\xE7", 24) +
                    data);
  EXPECT_TRUE(data == device->Reads(data.size()));  // too long to be shown
  EXPECT_EQ(Wire(kPort0Closed), relay->Answer(kClosePort0));
}

TEST_F(OversizedInputTest, ADeviceNameLongerThanItsFieldIsNeverUsed) {
  udev.Text(AdapterWith("E: DEVNAME=/dev/" + std::string(5000, 'n') + "\n"));
  StartLinked();
  EXPECT_EQ(Wire(kUsbNotFound), OpenUsb());
  EXPECT_TRUE(
      LogFile::Shows("1 SerialPortHandler SerialPort.cpp 4 Cannot open serial device. [Port ]"));
}

TEST_F(OversizedInputTest, EveryUdevPropertyMayBeLongerThanItsField) {
  std::string properties;
  for (const char* const key : {"ID_VENDOR_ID", "ID_MODEL_ID", "ID_VENDOR", "ID_MODEL"}) {
    properties += std::string("E: ") + key + "=" + std::string(100000, 'v') + "\n";
  }
  udev.Text(AdapterWith(properties + "E: DEVNAME=/dev/ttyUSB0\n"));
  device = std::make_unique<Device>("/dev/ttyUSB0");
  StartLinked();
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0000"), OpenUsb());
}

TEST_F(OversizedInputTest, AUdevTextOf10MegabytesIsSearchedToItsEnd) {
  std::string text;
  while (text.size() < 10'000'000) {
    text += "P: /devices/other\nN: other\nE: DEVNAME=/dev/other\nE: ID_BUS=usb\nE: " +
            std::string(900, 'x') + "\n\n";
  }
  udev.Text(text + AdapterWith("E: DEVNAME=/dev/ttyUSB0\n"));
  device = std::make_unique<Device>("/dev/ttyUSB0");
  StartLinked();
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0000"), OpenUsb());
  EXPECT_LT(service->ResidentKilobytes(), 100000U);
}

struct Large {
  const char* name;
  std::string text;
  const char* complaint;  // what the log says behind the path
};

void PrintTo(const Large& row, std::ostream* out) { *out << row.name; }

const std::vector<Large>& LargeConfigurations() {
  static const std::vector<Large> texts = {
      {"File", std::string(65537, '\n'), ": larger than 65536 bytes"},
      {"Value", "[#PhysicalPort0]\nbaud = " + std::string(64, '9') + "\n", ":2: value too long"},
      {"Line", std::string(60000, 'x') + "\n", ":1: neither comment, [section] nor key = value"},
  };
  return texts;
}

class LargeConfigurationTest : public ServiceTest, public testing::WithParamInterface<Large> {};

TEST_P(LargeConfigurationTest, IsRefusedWithOneLineForEachLookUp) {
  Configuration::Text(GetParam().text);
  StartLinked();
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0002"), relay->Answer(kOpenPort0));
  EXPECT_EQ(2U, LogFile::Count(std::string("1 libvost Libvost.cpp 4 ") + workplace::kConfiguration +
                               GetParam().complaint));
}

INSTANTIATE_TEST_SUITE_P(Texts, LargeConfigurationTest, testing::ValuesIn(LargeConfigurations()),
                         NameOf<Large>);

}  // namespace
