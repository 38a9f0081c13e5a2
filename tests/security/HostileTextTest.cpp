// SPDX-License-Identifier: MIT
// Text from outside that is made to be more than text: terminal escapes and words for a shell.
#include <algorithm>
#include <filesystem>

#include "e2e/ServiceTest.h"

namespace {

constexpr const char* kEscape = "\x1b]0;owned\x07\x1b[2J";
constexpr const char* kShellMade = "/tmp/e2e/owned";

class HostileTextTest : public ServiceTest {
 protected:
  HostileTextTest() { configuration.Port("#USBSerialPort0", "9600 8 none 1 none"); }

  // Everything that a terminal may be showing.
  static std::string Shown() { return LogFile::Text() + Service::Output() + Service::Errors(); }

  std::string OpenUsb() { return relay->Answer("0015 01 02 000F '#USBSerialPort0'"); }
};

bool HasControlBytes(const std::string& text) {
  return std::any_of(text.begin(), text.end(), [](char character) {
    const auto byte = static_cast<unsigned char>(character);
    return (byte < 0x20 && byte != '\n') || byte == 0x7f;
  });
}

// `command` and a name of any bytes, as a packet.
std::string Named(char command, const std::string& name, const std::string& body = "") {
  const size_t size = 6 + name.size() + body.size();
  std::string packet;
  packet += static_cast<char>(size >> 8);
  packet += static_cast<char>(size & 0xFF);
  packet += command;
  packet += '\x02';
  packet += static_cast<char>(name.size() >> 8);
  packet += static_cast<char>(name.size() & 0xFF);
  return packet + name + body;
}

TEST_F(HostileTextTest, EscapesInAPortNameComeBackToTheSenderAndAreShownNowhere) {
  const std::string name = std::string("#USBSerialPort0") + kEscape;
  StartLinked();
  relay->SendsBytes(Named('\x01', name));
  EXPECT_EQ(HexOf(Named('\x01', name, std::string("\0\x02", 2))), relay->NextPacket());
  relay->SendsBytes(Named('\x04', name, std::string("\x01\x01\0\x01X", 5)));
  relay->SendsBytes(Named('\x02', name));
  EXPECT_EQ(HexOf(Named('\x02', name, std::string("\0\x02", 2))), relay->NextPacket());
  EXPECT_EQ(std::string::npos, Shown().find("owned"));
  EXPECT_FALSE(HasControlBytes(Shown()));
}

TEST_F(HostileTextTest, DataInNeitherDirectionReachTheLogAndWrittenDataAreShownNowhere) {
  StartWithOpenPort();
  ASSERT_TRUE(device->Sends("RECEIVED"));
  EXPECT_EQ(Wire("0020 04 02 000E '#PhysicalPort0' 01 02 0008 'RECEIVED'"), relay->NextPacket());
  relay->Sends("001F 04 02 000E '#PhysicalPort0' 01 01 0007 'WRITTEN'");
  EXPECT_EQ("WRITTEN", device->Reads(7));
  EXPECT_EQ("Received(8):52 45 43 45 49 56 45 44 \n", Service::Errors());
  for (const std::string& line : LogFile::Lines()) {
    for (const char* const shown : {"RECEIVED", "52 45", "5245", "WRITTEN", "57 52", "5752"}) {
      EXPECT_EQ(std::string::npos, line.find(shown)) << shown;
    }
  }
  EXPECT_EQ(std::string::npos, Shown().find("WRITTEN"));
  EXPECT_EQ(std::string::npos, Shown().find("57 52"));
}

// The console shows a device that is open under its name, byte for byte: who can name device nodes
// or forge the list of devices can put escapes there.
TEST_F(HostileTextTest, EscapesInTheNameOfAnOpenDeviceReachTheConsoleAsTheyAre) {
  const std::string path = std::string("/dev/tty") + kEscape;
  udev.AddAdapterAtPort(0, path);
  device = std::make_unique<Device>(path);
  StartLinked();
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0000"), OpenUsb());
  device->Unplug();
  EXPECT_TRUE(Service::Prints("OPEN[" + path + "]\n"));
  EXPECT_TRUE(Service::Prints("(" + path + ")port close\n"));
  EXPECT_TRUE(
      LogFile::Shows("1 SerialPortHandler SerialPort.cpp 4 Close serial device. "
                     "[Port /dev/tty\\x1b]0;owned\\x07\\x1b[2J]"));
  EXPECT_FALSE(HasControlBytes(LogFile::Text()));
}

const char* const kShellWords[] = {
    "#USBSerialPort0;touch /tmp/e2e/owned",   "#USBSerialPort0$(touch /tmp/e2e/owned)",
    "#USBSerialPort0`touch\t/tmp/e2e/owned`", "#USBSerialPort0|touch${IFS}/tmp/e2e/owned",
    "#USBSerialPort0&&touch>/tmp/e2e/owned",  "#PhysicalPort0\ntouch /tmp/e2e/owned\n",
};

TEST_F(HostileTextTest, WordsForAShellInAPortNameReachNone) {
  for (const std::string name : kShellWords) {
    if (name.find_first_of("\n\t") == std::string::npos) {  // what a configuration cannot hold
      configuration.Port(name, "9600 8 none 1 none");
    }
  }
  StartLinked();
  for (const std::string name : kShellWords) {
    relay->SendsBytes(Named('\x01', name));
    EXPECT_EQ(HexOf(Named('\x01', name, std::string("\0\x02", 2))), relay->NextPacket());
  }
  EXPECT_FALSE(std::filesystem::exists(kShellMade));
  EXPECT_EQ(0U, UdevDatabase::Runs());
}

TEST_F(HostileTextTest, WordsForAShellInADeviceNameReachNone) {
  StartLinked();
  for (const char* const node : {"/dev/$(touch /tmp/e2e/owned)", "/dev/`touch /tmp/e2e/owned`",
                                 "/dev/x;touch /tmp/e2e/owned", "|touch /tmp/e2e/owned"}) {
    udev.Clear();
    udev.Text(std::string("P: /devices/pci0000:00/0000:00:1d.2/usb4/4-1/tty\nN: tty\nE: DEVNAME=") +
              node + "\nE: ID_BUS=usb\n\n");
    EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0004"), OpenUsb()) << node;
  }
  EXPECT_FALSE(std::filesystem::exists(kShellMade));
}

}  // namespace
