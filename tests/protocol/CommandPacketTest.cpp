// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

#include "protocol/CommandPacket.h"
#include "support/Hex.h"

namespace {

std::string Hex4(uint16_t value) {
  char text[5] = {};
  (void)std::snprintf(text, sizeof text, "%04X", static_cast<unsigned>(value));
  return text;
}

std::string CommandName(const CommandPacket& packet) {
  switch (packet.command) {
    case 1:
      return "open";
    case 2:
      return "close";
    case 4:
      return "data";
    default:
      return "command " + std::to_string(packet.command);
  }
}

std::string Identity(const CommandPacket& packet) {
  return packet.portForm == 1 ? Hex4(packet.portId1) + ":" + Hex4(packet.portId2)
                              : "\"" + packet.portName + "\"";
}

std::string Body(const CommandPacket& packet) {
  if (packet.command != 4) {
    return packet.parameter == 0 ? "" : " parameter " + Hex4(packet.parameter);
  }
  std::string text = " " + std::to_string(packet.blockCount) + " blocks";
  for (uint32_t i = 0; i < packet.blockCount; ++i) {
    DataBlock block;
    packet.GetBlock(i, block);
    text += " [" + std::to_string(block.type) + ":" + ToHex(block.data, block.length) + "]";
  }
  return text;
}

// What a packet says, or "refused".
std::string Outcome(const std::string& hexText) {
  const std::vector<uint8_t> bytes = FromHex(hexText);
  const CommandPacket packet(bytes.data(), static_cast<uint32_t>(bytes.size()));
  return packet.parsedOk ? CommandName(packet) + " " + Identity(packet) + Body(packet) : "refused";
}

struct ParseCase {
  const char* name;
  const char* bytes;
  const char* outcome;
};

void PrintTo(const ParseCase& row, std::ostream* stream) { *stream << row.bytes; }

class CommandPacketTable : public testing::TestWithParam<ParseCase> {};

TEST_P(CommandPacketTable, HasTheOutcome) {
  EXPECT_EQ(GetParam().outcome, Outcome(GetParam().bytes));
}

constexpr ParseCase kWellFormed[] = {
    // name, length cmd form identity body, outcome
    {"NumberedOpen", "0008 01 01  067B 2303", "open 067B:2303"},
    {"NumberedClose", "0008 02 01  0003 0007", "close 0003:0007"},
    {"NumberedCloseWithParameter", "000A 02 01  0003 0007  0005", "close 0003:0007 parameter 0005"},
    {"NumberedOpenWithParameter", "000A 01 01  0003 0007  FF01", "open 0003:0007 parameter FF01"},
    {"NamedOpen", "0009 01 02  0003 434F4D", "open \"COM\""},
    {"NamedOpenWithParameter", "000B 01 02  0003 434F4D  0102", "open \"COM\" parameter 0102"},
    {"NamedCloseOfPhysicalPort1", "0014 02 02  000E 23506879736963616C506F727431",
     "close \"#PhysicalPort1\""},
    {"NamedCloseWithParameter", "0009 02 02  0001 58  0A0B", "close \"X\" parameter 0A0B"},
    {"NamedDataWithOneBlock", "0010 04 02  0003 434F4D  01  01 0003 414243",
     "data \"COM\" 1 blocks [1:414243]"},
    {"NumberedDataWithOneBlock", "000E 04 01  0001 0002  01  02 0002 0D0A",
     "data 0001:0002 1 blocks [2:0D0A]"},
    {"DataWithTwoBlocksOfAnyType", "0012 04 02  0001 58  02  00 0001 41  FF 0002 4243",
     "data \"X\" 2 blocks [0:41] [255:4243]"},
    {"DataWithBlockCount0", "0008 04 02  0001 58  00", "data \"X\" 0 blocks"},
    {"DataWithABlockOfLength0", "000B 04 02  0001 58  01  07 0000", "data \"X\" 1 blocks [7:]"},
    {"NameWithAZeroByteEndsBeforeIt", "000A 01 02  0004 58590058", "open \"XY\""},
    {"NameThatStartsWithAZeroByteIsEmpty", "0008 01 02  0002 0058", "open \"\""},
    {"NameOfBytesAbove7F", "0008 02 02  0002 C3A4", "close \"\xC3\xA4\""},
};

constexpr ParseCase kMalformed[] = {
    {"Nothing", "", "refused"},
    {"OneByte", "00", "refused"},
    {"LengthFieldAlone", "0002", "refused"},
    {"NoPortForm", "0003 01", "refused"},
    {"NoIdentity", "0004 01 01", "refused"},
    {"NumberedFirstIdCutShort", "0005 02 01  00", "refused"},
    {"NumberedWithoutSecondId", "0006 02 01  0003", "refused"},
    {"NumberedSecondIdCutShort", "0007 02 01  0003 00", "refused"},
    {"NamedWithoutLength", "0004 02 02", "refused"},
    {"NamedLengthCutShort", "0005 02 02  00", "refused"},
    {"NamedWithNameLength0", "0006 02 02  0000", "refused"},
    {"NamedWithNameLength0AndAParameter", "0008 02 02  0000  0005", "refused"},
    {"NamedDataWithNameLength0", "000B 04 02  0000  01  01 0001 41", "refused"},
    {"NameLongerThanThePacket", "0008 01 02  0003 434F", "refused"},
    {"NameLengthFFFF", "0009 01 02  FFFF 434F4D", "refused"},
    {"PortForm0", "0008 01 00  0003 0007", "refused"},
    {"PortForm3", "0008 01 03  0003 0007", "refused"},
    {"PortFormFF", "0008 01 FF  0003 0007", "refused"},
    {"Command0", "0008 00 01  0003 0007", "refused"},
    {"Command3", "0008 03 01  0003 0007", "refused"},
    {"Command5", "0008 05 01  0003 0007", "refused"},
    {"CommandFF", "0008 FF 01  0003 0007", "refused"},
    {"OpenWithABodyOf1Byte", "0009 01 01  0003 0007  00", "refused"},
    {"OpenWithABodyOf3Bytes", "000B 01 01  0003 0007  000000", "refused"},
    {"OpenWithABodyOf4Bytes", "000C 01 01  0003 0007  00050006", "refused"},
    {"CloseWithABodyOf1Byte", "0009 02 01  0003 0007  00", "refused"},
    {"CloseWithABodyOf3Bytes", "000B 02 01  0003 0007  000500", "refused"},
    {"CloseWithABodyOf4Bytes", "000C 02 01  0003 0007  00050006", "refused"},
    {"NamedOpenWithABodyOf1Byte", "0008 01 02  0001 58  00", "refused"},
    {"DataWithoutBlockCount", "0007 04 02  0001 58", "refused"},
    {"DataWithBlockCount0AndAByteBehind", "0009 04 02  0001 58  00  00", "refused"},
    {"DataWithABlockMissing", "000D 04 02  0001 58  02  01 0002 4142", "refused"},
    {"DataWithABlockTypeAlone", "0009 04 02  0001 58  01  01", "refused"},
    {"DataWithABlockLengthCutShort", "000A 04 02  0001 58  01  01 00", "refused"},
    {"DataWithABlockLongerThanThePacket", "000D 04 02  0001 58  01  01 0003 4142", "refused"},
    {"DataWithABlockOfLengthFFFF", "000D 04 02  0001 58  01  01 FFFF 4142", "refused"},
    {"DataWithAByteBehindItsLastBlock", "000D 04 02  0001 58  01  01 0001 41  00", "refused"},
};

std::string CaseName(const testing::TestParamInfo<ParseCase>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(WellFormed, CommandPacketTable, testing::ValuesIn(kWellFormed), CaseName);
INSTANTIATE_TEST_SUITE_P(Malformed, CommandPacketTable, testing::ValuesIn(kMalformed), CaseName);

TEST(CommandPacketTest, LengthFieldIsIgnored) {
  for (const char* lengthField : {"0000", "0001", "0002", "0003", "0007", "0009", "FFFF"}) {
    EXPECT_EQ("close 0003:0007", Outcome(std::string(lengthField) + " 02 01 0003 0007"))
        << lengthField;
  }
}

TEST(CommandPacketTest, APacketOfItsLengthFieldAloneLeavesEveryFieldZero) {
  const std::vector<uint8_t> bytes = FromHex("0002");
  const CommandPacket packet(bytes.data(), 2);
  EXPECT_FALSE(packet.parsedOk);
  EXPECT_EQ(0, packet.command);
  EXPECT_EQ(0, packet.portForm);
  EXPECT_EQ(0, packet.portId1);
  EXPECT_EQ(0, packet.portId2);
  EXPECT_EQ(0, packet.nameLength);
  EXPECT_EQ(0, packet.blockCount);
}

TEST(CommandPacketTest, ANameWithAZeroByteKeepsTheNameLengthOfThePacket) {
  const std::vector<uint8_t> bytes = FromHex("000A 01 02  0004 58590058");
  const CommandPacket packet(bytes.data(), 10);
  EXPECT_EQ(4, packet.nameLength);
  EXPECT_EQ("XY", packet.portName);
}

TEST(CommandPacketTest, ABlockOfLength0HasAnEmptyArray) {
  const std::vector<uint8_t> bytes = FromHex("000B 04 02  0001 58  01  07 0000");
  const CommandPacket packet(bytes.data(), 11);
  DataBlock block{9, 9, nullptr};
  packet.GetBlock(0, block);
  EXPECT_EQ(7, block.type);
  EXPECT_EQ(0, block.length);
  EXPECT_NE(nullptr, block.data);
}

TEST(CommandPacketTest, ThreeDeclaredBlocksOfWhichTwoAreCompleteAreRefusedAndKeepTheTwo) {
  const std::vector<uint8_t> bytes =
      FromHex("0014 04 02  0001 58  03  01 0001 41  02 0002 4243  03 0002 44");
  const CommandPacket packet(bytes.data(), static_cast<uint32_t>(bytes.size()));
  EXPECT_FALSE(packet.parsedOk);
  DataBlock block;
  packet.GetBlock(1, block);
  EXPECT_EQ("4243", ToHex(block.data, block.length));
  DataBlock third{9, 8, nullptr};
  packet.GetBlock(2, third);
  EXPECT_EQ(9, third.type);
}

TEST(CommandPacketTest, GetBlockWithAnIndexEqualToTheNumberOfBlocksLeavesItsArgumentUnchanged) {
  const std::vector<uint8_t> bytes = FromHex("0010 04 02  0003 434F4D  01  01 0003 414243");
  const CommandPacket packet(bytes.data(), 16);
  const uint8_t mark = 0;
  for (const uint32_t index : {1U, 2U, 255U, 0xFFFFFFFFU}) {
    DataBlock block{9, 8, &mark};
    packet.GetBlock(index, block);
    EXPECT_EQ(9, block.type) << index;
    EXPECT_EQ(8, block.length) << index;
    EXPECT_EQ(&mark, block.data) << index;
  }
}

TEST(CommandPacketTest, ThePacketIsAPrivateCopy) {
  std::vector<uint8_t> bytes = FromHex("0010 04 02  0003 434F4D  01  01 0003 414243");
  const CommandPacket packet(bytes.data(), 16);
  bytes.assign(bytes.size(), 0xEE);
  DataBlock block;
  packet.GetBlock(0, block);
  EXPECT_EQ("COM", packet.portName);
  EXPECT_EQ("414243", ToHex(block.data, block.length));
}

TEST(CommandPacketTest, ADataPacketWith255BlocksIsReadWhole) {
  std::string text = "0403 04 02  0001 58  FF ";
  std::string expected = "data \"X\" 255 blocks";
  for (int i = 0; i < 255; ++i) {
    text += "05 0001 41 ";
    expected += " [5:41]";
  }
  EXPECT_EQ(expected, Outcome(text));
}

TEST(CommandPacketTest, ThePacketOf65535BytesIsReadWhole) {
  std::string data;
  for (int i = 0; i < 65535 - 11; ++i) {
    data += "5A";
  }
  EXPECT_EQ("data \"X\" 1 blocks [1:" + data + "]",
            Outcome("FFFF 04 02  0001 58  01  01 FFF4" + data));
}

}  // namespace
