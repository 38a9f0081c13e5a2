// SPDX-License-Identifier: MIT
// Input that no relay should send.
#include <csignal>
#include <random>

#include "e2e/ServiceTest.h"

namespace {

std::string Repeated(const char* byte, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    text += byte;
  }
  return text;
}

struct BadPacket {
  const char* name;
  std::string bytes;
};

void PrintTo(const BadPacket& row, std::ostream* out) { *out << row.name; }

// What is too long for a recording.
const std::vector<BadPacket>& BadPackets() {
  static const std::vector<BadPacket> packets = {
      {"LengthField0", "0000 02 02 0001 58" + Repeated("00", 65534 - 5)},
      {"LengthField1", "0001 02 02 0001 58" + Repeated("00", 65535 - 5)},
      {"LongestPacket", "FFFF 02 02 0001 58" + Repeated("00", 65535 - 7)},
  };
  return packets;
}

class MalformedInputTest : public ServiceTest, public testing::WithParamInterface<BadPacket> {};

TEST_P(MalformedInputTest, IsLoggedOnceAndTheLinkStaysUp) {
  StartLinked();
  relay->Sends(GetParam().bytes);
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_EQ(
      (std::vector<std::string>{kStarted, kRefused,
                                "3 SerialPortHandler SerialPortHandler.cpp 4 close command proc."}),
      LogFile::Lines());
}

INSTANTIATE_TEST_SUITE_P(Packets, MalformedInputTest, testing::ValuesIn(BadPackets()),
                         NameOf<BadPacket>);

std::string RandomBytes(std::mt19937& random, size_t count) {
  std::uniform_int_distribution<int> byte(0, 255);
  std::string bytes;
  while (bytes.size() < count) {
    bytes += static_cast<char>(byte(random));
  }
  return bytes;
}

TEST_F(MalformedInputTest, PacketsOfRandomBytesAreLoggedOnceEach) {
  StartWithOpenPort();
  std::mt19937 random(1);
  std::uniform_int_distribution<size_t> size(1, 600);
  constexpr size_t kPackets = 500;
  for (size_t i = 0; i < kPackets; ++i) {
    std::string packet = "??" + RandomBytes(random, size(random));
    packet[0] = static_cast<char>(packet.size() >> 8);
    packet[1] = static_cast<char>(packet.size() & 0xFF);
    packet[2] = static_cast<char>(packet[2] | 0x08);  // no command has this bit
    relay->SendsBytes(packet);
  }
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_EQ(kPackets, LogFile::Count(kRefused));
  EXPECT_EQ(Wire(kPort0Closed), relay->Answer(kClosePort0));
}

// Where the packets begin is random too, and most streams end inside one.
TEST_F(MalformedInputTest, StreamsOfRandomBytesDoNotEndTheProcess) {
  std::mt19937 random(2);
  StartService();
  for (int round = 0; round < 10; ++round) {
    Link();
    ASSERT_FALSE(HasFatalFailure());
    relay->SendsBytes(RandomBytes(random, 20000));
    relay->Leaves();
  }
  Link();
  EXPECT_EQ(Wire(kFenceReply), relay->Answer(kFence));
  EXPECT_EQ("exit 0", Stop(SIGTERM));
}

}  // namespace
