// SPDX-License-Identifier: MIT
// Open and close commands and every status that answers them.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <fstream>
#include <numeric>
#include <thread>

#include "e2e/ServiceTest.h"
#include "support/Hex.h"

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
  configuration.Port("#USBSerialPort99", "9600 8 none 1 none");
  StartLinked();
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort1' 0002"),
            relay->Answer("0014 01 02 000E '#PhysicalPort1'"));
  EXPECT_EQ(Wire("0017 01 02 000F '#USBSerialPort0' 0002"),
            relay->Answer("0015 01 02 000F '#USBSerialPort0'"));
  EXPECT_EQ(Wire("0018 01 02 0010 '#USBSerialPort99' 0002"),
            relay->Answer("0016 01 02 0010 '#USBSerialPort99'"));
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

// A device that sends without a pause: bytes that count up, so that a gap would show.
class TalkingDevice {
 public:
  explicit TalkingDevice(const Device& device) : talk([this, &device] { Talk(device); }) {}
  ~TalkingDevice() {
    quiet = true;
    talk.join();
  }

 private:
  void Talk(const Device& device) const {
    std::array<uint8_t, 256> values{};
    std::iota(values.begin(), values.end(), uint8_t{0});
    for (size_t next = 0; !quiet;) {
      pollfd line = {device.FarEnd(), POLLOUT, 0};
      if (poll(&line, 1, 100) == 1) {
        const ssize_t taken = write(line.fd, &values.at(next), values.size() - next);
        next = (next + static_cast<size_t>(std::max<ssize_t>(taken, 0))) % values.size();
      }
    }
  }
  std::atomic<bool> quiet{false};
  std::thread talk;
};

TEST_F(ServiceTest, TheReplyToAnOpenComesBeforeThePortsDataAndNoneIsLost) {
  device = std::make_unique<Device>();
  StartLinked();
  const TalkingDevice talking(*device);
  const std::string data = Wire("04 02 000E '#PhysicalPort0' 01 02");
  for (int round = 0; round < 20; ++round) {
    ASSERT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0)) << "round " << round;
    std::string received;
    while (received.size() < 600) {
      const std::string packet = relay->NextPacket();
      ASSERT_EQ(data, packet.substr(4, 40)) << packet;
      received += packet.substr(48);
    }
    const std::vector<uint8_t> bytes = FromHex(received);
    for (size_t i = 1; i < bytes.size(); ++i) {
      ASSERT_EQ(static_cast<uint8_t>(bytes[i - 1] + 1), bytes[i]) << "byte " << i;
    }
    relay->Sends(kClosePort0);
    std::string packet = relay->NextPacket();
    while (packet.substr(4, 40) == data) {
      packet = relay->NextPacket();
    }
    ASSERT_EQ(Wire(kPort0Closed), packet);
  }
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
