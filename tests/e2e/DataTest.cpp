// SPDX-License-Identifier: MIT
// Data in both directions.
#include <future>

#include "e2e/ServiceTest.h"
#include "support/Hex.h"

namespace {

constexpr const char* kDataLogged =
    "3 SerialPortHandler SerialPortHandler.cpp 4 data command proc.";

TEST_F(ServiceTest, ABlockIsWrittenToItsPort) {
  StartWithOpenPort();
  relay->Sends("001B 04 02 000E '#PhysicalPort0' 01 01 0003 414243");
  EXPECT_EQ("ABC", device->Reads(3));
  EXPECT_EQ(1U, LogFile::Count(kDataLogged));
}

TEST_F(ServiceTest, BlocksAreWrittenInOrderWhateverTheirType) {
  StartWithOpenPort();
  relay->Sends(
      "0025 04 02 000E '#PhysicalPort0' 04"
      "01 0001 'A'  02 0002 'BC'  00 0000  FF 0001 00");
  EXPECT_EQ(std::string("ABC\0", 4), device->Reads(4));
}

TEST_F(ServiceTest, DataCommandsAreNotAnswered) {
  StartWithOpenPort();
  relay->Sends("001B 04 02 000E '#PhysicalPort0' 01 01 0003 'ABC'");
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
}

TEST_F(ServiceTest, ADataCommandWithoutBlocksWritesNothingAndSendsNothing) {
  StartWithOpenPort();
  relay->Sends("0015 04 02 000E '#PhysicalPort0' 00");
  relay->Sends("0019 04 02 000E '#PhysicalPort0' 01 01 0001 'Z'");
  EXPECT_EQ("Z", device->Reads(1));
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_EQ(2U, LogFile::Count(kDataLogged));
}

TEST_F(ServiceTest, DataForAPortThatIsNotOpenAreDroppedWithoutAReplyOrAnError) {
  StartLinked();
  relay->Sends("001B 04 02 000E '#PhysicalPort0' 01 01 0003 'ABC'");
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_EQ(
      (std::vector<std::string>{kStarted, kDataLogged,
                                "3 SerialPortHandler SerialPortHandler.cpp 4 close command proc."}),
      LogFile::Lines());
}

TEST_F(ServiceTest, EveryByteValuePassesUnchangedBothWays) {
  StartWithOpenPort();
  std::string all;
  for (int value = 0; value < 256; ++value) {
    all += static_cast<char>(value);
  }
  relay->Sends("0118 04 02 000E '#PhysicalPort0' 01 01 0100" + HexOf(all));
  EXPECT_EQ(all, device->Reads(256));
  ASSERT_TRUE(device->Sends(all));
  std::string received;
  while (received.size() < 2 * all.size()) {
    const std::string packet = relay->NextPacket();
    ASSERT_EQ(Wire("04 02 000E '#PhysicalPort0' 01 02"), packet.substr(4, 40));
    received += packet.substr(48);
  }
  EXPECT_EQ(HexOf(all), received);
}

TEST_F(ServiceTest, ReceivedBytesGoOutAsOneNotificationWithOneBlockOfType2) {
  StartWithOpenPort();
  ASSERT_TRUE(device->Sends("\r\n"));
  EXPECT_EQ(Wire("001A 04 02 000E '#PhysicalPort0' 01 02 0002 0D0A"), relay->NextPacket());
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
}

TEST_F(ServiceTest, BytesThatWaitedBeforeTheOpenAreNotDelivered) {
  device = std::make_unique<Device>();
  StartLinked();
  ASSERT_TRUE(device->Sends("stale"));
  ASSERT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  ASSERT_TRUE(device->Sends("A"));
  EXPECT_EQ(Wire("0019 04 02 000E '#PhysicalPort0' 01 02 0001 'A'"), relay->NextPacket());
}

TEST_F(ServiceTest, SevenPortsWorkAtTheSameTime) {
  std::vector<std::unique_ptr<Device>> devices;
  std::vector<std::string> names;
  devices.push_back(std::make_unique<Device>());
  names.push_back("000E '#PhysicalPort0'");
  for (unsigned port = 0; port < 6; ++port) {
    const std::string number = std::to_string(port);
    configuration.Port("#USBSerialPort" + number, "115200 8 none 1 none");
    udev.AddAdapterAtPort(port, "/dev/ttyUSB" + number);
    devices.push_back(std::make_unique<Device>("/dev/ttyUSB" + number));
    names.push_back("000F '#USBSerialPort" + number + "'");
  }
  StartLinked();
  for (const std::string& name : names) {
    const std::string rest = std::string("01 02") + name;
    const std::string length = name == names[0] ? "0014" : "0015";
    const std::string replyLength = name == names[0] ? "0016" : "0017";
    ASSERT_EQ(Wire(replyLength + rest + "0000"), relay->Answer(length + rest));
  }
  for (size_t i = 0; i < names.size(); ++i) {
    const std::string digit = std::to_string(i);
    relay->Sends((i == 0 ? "001A" : "001B") + std::string("04 02") + names[i] + "01 01 0002 'a" +
                 digit + "'");
  }
  for (size_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ("a" + std::to_string(i), devices[i]->Reads(2));
    ASSERT_TRUE(devices[i]->Sends("b"));
    EXPECT_EQ(Wire((i == 0 ? "0019" : "001A") + std::string("04 02") + names[i] + "01 02 0001 'b'"),
              relay->NextPacket());
  }
}

// Ten megabytes, in which no piece is like another.
std::string ManyBytes() {
  constexpr size_t kCount = 10U << 20;
  std::string bytes(kCount, '\0');
  uint32_t state = 1;
  for (char& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

TEST_F(ServiceTest, TenMegabytesReachTheDeviceUnchanged) {
  StartWithOpenPort();
  const std::string bytes = ManyBytes();
  const std::string head = Wire("A018 04 02 000E '#PhysicalPort0' 01 01 A000");
  const std::vector<uint8_t> headBytes = WireBytes(head);
  auto sending = std::async(std::launch::async, [&] {
    for (size_t at = 0; at < bytes.size(); at += 0xA000) {
      relay->SendsBytes(std::string(headBytes.begin(), headBytes.end()) + bytes.substr(at, 0xA000));
    }
  });
  EXPECT_TRUE(bytes == device->Reads(bytes.size()));
  sending.get();
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
}

TEST_F(ServiceTest, TenMegabytesReachTheRelayUnchanged) {
  StartWithOpenPort();
  const std::string bytes = ManyBytes();
  auto sending = std::async(std::launch::async, [&] { return device->Sends(bytes); });
  std::string received;
  while (received.size() < bytes.size()) {
    const std::string packet = relay->NextPacket();
    ASSERT_EQ(Wire("04 02 000E '#PhysicalPort0' 01 02"), packet.substr(4, 40)) << packet;
    const std::vector<uint8_t> data = FromHex(packet.substr(48));
    received.append(data.begin(), data.end());
  }
  EXPECT_TRUE(sending.get());
  EXPECT_TRUE(bytes == received);
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
}

}  // namespace
