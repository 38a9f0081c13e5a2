// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "relay/Error.h"
#include "relay/Packet.h"
#include "relay/Text.h"

namespace {

using relay::Direction;
using relay::FromHex;
using relay::Packet;
using relay::ParsePacket;
using relay::Port;
using relay::ToHex;

TEST(PacketTest, BuildsTheCommandsOfTheManual) {
  EXPECT_EQ(FromHex("0007 01 02 0001 58"), relay::OpenCommand(Port::FromText("X")));
  EXPECT_EQ(FromHex("0009 01 02 0001 58 4645"),
            relay::OpenCommand(Port::FromText("X"), relay::kFenceParameter));
  EXPECT_EQ(FromHex("0008 02 01 0403 6001"), relay::CloseCommand(Port::FromText("0403:6001")));
  EXPECT_EQ(FromHex("000E 04 02 0001 58 01 01 0003 414243"),
            relay::DataCommand(Port::FromText("X"), {{1, "ABC"}}));
}

TEST(PacketTest, TheLargestDataFitsAndOneByteMoreDoesNot) {
  const Port port = Port::FromText("X");
  const std::string most(relay::MaxData(port), 'a');
  EXPECT_EQ(65535u, relay::DataCommand(port, {{1, most}}).size());
  EXPECT_THROW((void)relay::DataCommand(port, {{1, most + 'a'}}), relay::Error);
  EXPECT_NO_THROW((void)relay::DataCommand(port, std::vector<relay::Block>(255)));
  EXPECT_THROW((void)relay::DataCommand(port, std::vector<relay::Block>(256)), relay::Error);
}

struct ParseCase {
  const char* name;
  Direction direction;
  const char* bytes;
  const char* described;  // empty: no packet
};

constexpr ParseCase kParseCases[] = {
    {"Reply", Direction::kFromService, "0009 01 02 0001 58 0000",
     "reply to open X: status 0, open"},
    {"ReplyByIds", Direction::kFromService, "000A 02 01 0403 6001 0002",
     "reply to close 0403:6001: status 2, the port is not open"},
    {"Notification", Direction::kFromService, "000D 04 02 0001 58 01 02 0002 410A",
     "from X: \"A\\n\""},
    {"CommandWithoutAParameter", Direction::kToService, "0007 01 02 0001 58", "open X"},
    {"Fence", Direction::kToService, "0009 01 02 0001 58 4645", "open X, parameter 4645: a fence"},
    {"ReplyWithoutAStatus", Direction::kFromService, "0007 01 02 0001 58", ""},
};

TEST(PacketTest, ParsesWhatThereIsAndNothingElse) {
  for (const ParseCase& one : kParseCases) {
    const relay::ParsedPacket parsed = ParsePacket(FromHex(one.bytes), one.direction);
    EXPECT_EQ(std::string_view(one.described).empty(), !parsed.problem.empty()) << one.name;
    if (parsed.problem.empty()) {
      EXPECT_EQ(one.described, relay::Describe(parsed.packet, one.direction)) << one.name;
    }
  }
}

TEST(PacketTest, IdsAreNoNameAndNamesAreNoIds) {
  EXPECT_TRUE(Port::FromText("0403:6001").IsNumbered());
  for (const char* const name : {"#PhysicalPort0", "0403:600", "0403:600x", "04036001"}) {
    EXPECT_FALSE(Port::FromText(name).IsNumbered()) << name;
  }
  EXPECT_EQ("a\\e", Port::FromText("a\x1B").Text());
  EXPECT_THROW((void)Port::FromText(""), relay::Error);
  EXPECT_THROW((void)Port::FromText(std::string(65536, 'a')), relay::Error);
}

TEST(PacketCutterTest, GivesWholePacketsHoweverTheyCome) {
  const std::string stream = FromHex("0007 01 02 0001 58  0009 01 02 0001 58 0000  00");
  for (size_t piece = 1; piece <= stream.size(); ++piece) {
    relay::PacketCutter cutter;
    std::vector<std::string> packets;
    for (size_t at = 0; at < stream.size(); at += piece) {
      cutter.Add(std::string_view(stream).substr(at, piece));
      while (const auto packet = cutter.Next()) {
        packets.push_back(ToHex(*packet));
      }
    }
    EXPECT_EQ((std::vector<std::string>{"00070102000158", "000901020001580000"}), packets);
    EXPECT_EQ(std::string(1, '\0'), cutter.Rest());
  }
}

TEST(PacketCutterTest, ALengthThatNoPacketHasIsNonsense) {
  relay::PacketCutter cutter;
  cutter.Add(FromHex("0001"));
  EXPECT_THROW((void)cutter.Next(), relay::Error);
}

}  // namespace
