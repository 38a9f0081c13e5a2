// SPDX-License-Identifier: MIT
// Opens and closes that no recording can have: another configuration, another node, much data.
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

class OpenCloseTest : public ServiceTest {};

TEST_F(OpenCloseTest, OpeningAPortWithAnIncompleteConfigurationIsAnsweredWithStatus2) {
  Configuration::Text("[#PhysicalPort0]\nbaud = 9600\ndata = 8\nparity = none\nstop = 1\n");
  device = std::make_unique<Device>();
  StartLinked();
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0002"), relay->Answer(kOpenPort0));
}

TEST_F(OpenCloseTest, OpeningANodeThatIsNoTerminalIsAnsweredWithStatus4) {
  std::ofstream("/dev/ttyS2") << "text";
  StartLinked();
  EXPECT_EQ(Wire("0016 01 02 000E '#PhysicalPort0' 0004"), relay->Answer(kOpenPort0));
  EXPECT_FALSE(service->Holds("/dev/ttyS2"));
  EXPECT_EQ("text", workplace::ReadWhole("/dev/ttyS2"));
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

TEST_F(OpenCloseTest, TheReplyToAnOpenComesBeforeThePortsDataAndNoneIsLost) {
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

// A pseudo-terminal keeps speed, stop bits, flow control and the kind of parity.
TEST_F(OpenCloseTest, EachOpenSetsTheLineByTheWordsOfTheConfiguration) {
  configuration.Port("#PhysicalPort0", "19200 7 odd 2 hardware");
  StartWithOpenPort();
  termios line = device->Settings();
  EXPECT_EQ(speed_t{B19200}, cfgetospeed(&line));
  EXPECT_EQ(tcflag_t{CSTOPB | CRTSCTS | PARODD},
            line.c_cflag & (CSTOPB | CRTSCTS | PARODD | CMSPAR));
  EXPECT_EQ(Wire(kPort0Closed), relay->Answer(kClosePort0));
  configuration.Port("#PhysicalPort0", "115200 8 none 1 XOnXOff");
  EXPECT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  line = device->Settings();
  EXPECT_EQ(speed_t{B115200}, cfgetospeed(&line));
  EXPECT_EQ(0U, line.c_cflag & (CSTOPB | CRTSCTS));
  EXPECT_EQ(tcflag_t{IXON | IXOFF}, line.c_iflag & (IXON | IXOFF));
}

}  // namespace
