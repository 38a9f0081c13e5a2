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

const std::vector<BadPacket>& BadPackets() {
  static const std::vector<BadPacket> packets = {
      {"OnlyACommand", "0003 01"},
      {"NoIdentity", "0004 01 02"},
      {"NameShorterThanItsLength", "0008 01 02 0003 4142"},
      {"NumbersCutShort", "0007 02 01 0003 00"},
      {"PortForm0", "0007 01 00 0001 58"},
      {"PortForm3", "0007 02 03 0001 58"},
      {"LengthField0", "0000 02 02 0001 58" + Repeated("00", 65534 - 5)},
      {"LengthField1", "0001 02 02 0001 58" + Repeated("00", 65535 - 5)},
      {"LengthField3", "0003 FF"},
      {"LongestPacket", "FFFF 02 02 0001 58" + Repeated("00", 65535 - 7)},
      {"OneByteBehindAClose", "0008 02 02 0001 58 00"},
      {"FourBytesBehindAnOpen", "000B 01 02 0001 58 0000 0000"},
      {"OneByteBehindTheLastBlock", "000D 04 02 0001 58 01 01 0001 41 00"},
      {"NameOfLength0", "0006 01 02 0000"},
      {"NameOfLength0BeforeMore", "0008 02 02 0000 0005"},
      {"Command0", "0007 00 02 0001 58"},
      {"Command3", "0007 03 02 0001 58"},
      {"Command255", "0007 FF 02 0001 58"},
      {"NoBlockCount", "0007 04 02 0001 58"},
      {"ThreeBlocksAnnouncedTwoThere", "0010 04 02 0001 58 03 01 0001 41 01 0001 42"},
      {"BlockLongerThanThePacket", "000D 04 02 0001 58 01 01 FFFF 4142"},
      {"BlockWithHalfALength", "000A 04 02 0001 58 01 01 00"},
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

// A length field of 2 announces no command byte; it counts as a broken stream.
TEST_F(ServiceTest, ALengthFieldOf2EndsTheLinkAndClosesThePorts) {
  StartWithOpenPort();
  relay->Sends("0002");
  EXPECT_EQ("closed", relay->NextPacket());
  EXPECT_TRUE(Becomes([&] { return !service->Holds(device->Node()); }));
  Link();
  EXPECT_EQ(Wire(kPort0Opened), relay->Answer(kOpenPort0));
  EXPECT_EQ(0U, LogFile::Count(kRefused));
}

TEST_F(ServiceTest, APacketInSinglePiecesIsAPacket) {
  StartLinked();
  for (const char* const byte : {"00", "07", "02", "02", "00", "01", "58"}) {
    relay->Sends(byte);
  }
  EXPECT_EQ(Wire(kFenceReply), relay->NextPacket());
}

TEST_F(ServiceTest, PacketsInOnePieceAreHandledOneByOne) {
  StartLinked();
  relay->Sends("0007 02 02 0001 'X'  0007 03 02 0001 'X'  0007 02 02 0001 'Y'");
  EXPECT_EQ(Wire("0009 02 02 0001 'X' 0002"), relay->NextPacket());
  EXPECT_EQ(Wire("0009 02 02 0001 'Y' 0002"), relay->NextPacket());
  EXPECT_EQ(1U, LogFile::Count(kRefused));
}

std::string RandomBytes(std::mt19937& random, size_t count) {
  std::uniform_int_distribution<int> byte(0, 255);
  std::string bytes;
  while (bytes.size() < count) {
    bytes += static_cast<char>(byte(random));
  }
  return bytes;
}

TEST_F(ServiceTest, PacketsOfRandomBytesAreLoggedOnceEach) {
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
TEST_F(ServiceTest, StreamsOfRandomBytesDoNotEndTheProcess) {
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
