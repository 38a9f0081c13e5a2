// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "protocol/PacketBuilder.h"
#include "protocol/WireFormat.h"
#include "support/Hex.h"

namespace {

std::string HexOf(const CPacketBuilder& builder) {
  return ToHex(builder.Bytes().data(), builder.Bytes().size());
}

CPacketBuilder ReplyTo(const std::string& command) {
  const std::vector<uint8_t> bytes = FromHex(command);
  return CPacketBuilder(CommandPacket(bytes.data(), static_cast<uint32_t>(bytes.size())));
}

struct ReplyCase {
  const char* name;
  const char* command;
  uint16_t status;
  const char* reply;
};

void PrintTo(const ReplyCase& row, std::ostream* stream) { *stream << row.command; }

class ReplyTable : public testing::TestWithParam<ReplyCase> {};

TEST_P(ReplyTable, EchoesTheCommandAndCarriesTheStatus) {
  CPacketBuilder reply = ReplyTo(GetParam().command);
  EXPECT_TRUE(reply.SetStatus(GetParam().status));
  EXPECT_EQ(Packed(GetParam().reply), HexOf(reply));
}

constexpr ReplyCase kReplies[] = {
    {"NamedCloseDone", "0014 02 02  000E 23506879736963616C506F727431", kStatusDone,
     "0016 02 02  000E 23506879736963616C506F727431  0000"},
    {"NumberedCloseWithParameterLeadsToNoPort", "000A 02 01  0003 0007  0005", kStatusNoPort,
     "000A 02 01  0003 0007  0002"},
    {"NumberedOpenLeadsToNoPort", "0008 01 01  067B 2303", kStatusNoPort,
     "000A 01 01  067B 2303  0002"},
    {"NamedOpenDone", "0009 01 02  0003 434F4D", kStatusDone, "000B 01 02  0003 434F4D  0000"},
    {"NamedOpenUnavailable", "0009 01 02  0003 434F4D", kStatusUnavailable,
     "000B 01 02  0003 434F4D  0003"},
    {"NamedOpenFailed", "000B 01 02  0003 434F4D  1234", kStatusOpenFailed,
     "000B 01 02  0003 434F4D  0004"},
    {"NumberedCloseFailed", "0008 02 01  0003 0007", kStatusCloseFailed,
     "000A 02 01  0003 0007  0005"},
    {"StatusHighByteFirst", "0008 02 01  0003 0007", 0x1234, "000A 02 01  0003 0007  1234"},
    {"NameUpToItsFirstZeroByte", "000A 01 02  0004 58590058", kStatusDone,
     "000A 01 02  0002 5859  0000"},
    {"NameEmptyBehindALeadingZeroByte", "0008 01 02  0002 0058", kStatusNoPort,
     "0008 01 02  0000  0002"},
};

INSTANTIATE_TEST_SUITE_P(Replies, ReplyTable, testing::ValuesIn(kReplies),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(PacketBuilderTest, StatusesHaveTheirNumbersOnTheWire) {
  EXPECT_EQ(0, kStatusDone);
  EXPECT_EQ(2, kStatusNoPort);
  EXPECT_EQ(3, kStatusUnavailable);
  EXPECT_EQ(4, kStatusOpenFailed);
  EXPECT_EQ(5, kStatusCloseFailed);
}

TEST(PacketBuilderTest, ASecondStatusIsAppendedBehindTheFirst) {
  CPacketBuilder reply(kCommandOpen, 3, 7);
  EXPECT_TRUE(reply.SetStatus(2));
  EXPECT_TRUE(reply.SetStatus(0x0304));
  EXPECT_EQ(Packed("000C 01 01  0003 0007  0002 0304"), HexOf(reply));
}

TEST(PacketBuilderTest, SetStatusOnADataNotificationIsRefusedAndChangesNothing) {
  CPacketBuilder notification(kCommandData, 1, 2);
  EXPECT_FALSE(notification.SetStatus(0));
  EXPECT_EQ(Packed("0008 04 01  0001 0002"), HexOf(notification));
}

TEST(PacketBuilderTest, SetStatusOnAnUnknownCommandIsRefusedAndChangesNothing) {
  CPacketBuilder builder(3, 1, 2);
  EXPECT_FALSE(builder.SetStatus(0));
  EXPECT_EQ(Packed("0008 03 01  0001 0002"), HexOf(builder));
}

TEST(PacketBuilderTest, AddBlockOnAReplyIsRefusedAndChangesNothing) {
  const std::vector<uint8_t> data = FromHex("4142");
  CPacketBuilder openReply(kCommandOpen, "X");
  CPacketBuilder closeReply(kCommandClose, "X");
  EXPECT_FALSE(openReply.AddBlock(data.data(), kReceivedDataBlock, 2));
  EXPECT_FALSE(closeReply.AddBlock(data.data(), kReceivedDataBlock, 2));
  EXPECT_EQ(Packed("0007 01 02  0001 58"), HexOf(openReply));
  EXPECT_EQ(Packed("0007 02 02  0001 58"), HexOf(closeReply));
}

TEST(PacketBuilderTest, ANumberedNotificationCarriesOneBlockOfType2) {
  const std::vector<uint8_t> data = FromHex("0D0A");
  CPacketBuilder notification(kCommandData, 1, 2);
  EXPECT_TRUE(notification.AddBlock(data.data(), kReceivedDataBlock, 2));
  EXPECT_EQ(Packed("000E 04 01  0001 0002  01  02 0002 0D0A"), HexOf(notification));
}

TEST(PacketBuilderTest, AddBlockWithoutDataIsRefusedAndLeavesTheEightByteHeader) {
  const uint8_t unused = 0;
  CPacketBuilder notification(kCommandData, 1, 2);
  EXPECT_FALSE(notification.AddBlock(&unused, kReceivedDataBlock, 0));
  EXPECT_EQ(Packed("0008 04 01  0001 0002"), HexOf(notification));
}

TEST(PacketBuilderTest, TwoBlocksHaveOneCountByteReading2BeforeTheFirst) {
  const std::vector<uint8_t> data = FromHex("4142");
  CPacketBuilder notification(kCommandData, 1, 2);
  EXPECT_TRUE(notification.AddBlock(data.data(), 2, 1));
  EXPECT_TRUE(notification.AddBlock(data.data(), 7, 2));
  EXPECT_EQ(Packed("0012 04 01  0001 0002  02  02 0001 41  07 0002 4142"), HexOf(notification));
}

TEST(PacketBuilderTest, LengthFieldWrapsAfter65527Bytes) {
  const std::vector<uint8_t> data(65528, 0x5A);
  CPacketBuilder notification(kCommandData, 1, 2);
  EXPECT_TRUE(notification.AddBlock(data.data(), kReceivedDataBlock, 65527));
  ASSERT_EQ(65539U, notification.Bytes().size());
  EXPECT_EQ(Packed("0003 04 01  0001 0002  01  02 FFF7 5A"),
            ToHex(notification.Bytes().data(), 13));
  EXPECT_EQ(0x5A, notification.Bytes().back());
}

TEST(PacketBuilderTest, ABlockOf65528BytesBehindANumberedHeaderIsRefused) {
  const std::vector<uint8_t> data(65528, 0x5A);
  CPacketBuilder notification(kCommandData, 1, 2);
  EXPECT_FALSE(notification.AddBlock(data.data(), kReceivedDataBlock, 65528));
  EXPECT_EQ(Packed("0008 04 01  0001 0002"), HexOf(notification));
}

TEST(PacketBuilderTest, TheLimitCountsTheBlocksBefore) {
  const std::vector<uint8_t> data(65535, 0x5A);
  CPacketBuilder notification(kCommandData, 1, 2);
  ASSERT_TRUE(notification.AddBlock(data.data(), 2, 1));  // 13 bytes now
  EXPECT_FALSE(notification.AddBlock(data.data(), 2, 65523));
  EXPECT_EQ(Packed("000D 04 01  0001 0002  01  02 0001 5A"), HexOf(notification));
  EXPECT_TRUE(notification.AddBlock(data.data(), 2, 65522));
}

TEST(PacketBuilderTest, The257thBlockAppendsASecondCountByte) {
  const std::vector<uint8_t> data = FromHex("41");
  CPacketBuilder notification(kCommandData, 1, 2);
  for (int i = 0; i < 256; ++i) {
    ASSERT_TRUE(notification.AddBlock(data.data(), 2, 1)) << i;
  }
  ASSERT_EQ(8U + 1 + 256 * 4, notification.Bytes().size());
  EXPECT_EQ(0, notification.Bytes()[8]);
  ASSERT_TRUE(notification.AddBlock(data.data(), 2, 1));
  ASSERT_EQ(8U + 1 + 256 * 4 + 1 + 4, notification.Bytes().size());
  EXPECT_EQ(0, notification.Bytes()[8]);
  EXPECT_EQ(Packed("01 02 0001 41"),
            ToHex(notification.Bytes().data() + 8 + 1 + size_t{256} * 4, 5));
  EXPECT_EQ("040E", ToHex(notification.Bytes().data(), 2));
}

TEST(PacketBuilderTest, ABuilderOfAPacketThatDidNotParseStaysEmptyAndRefusesBothAppends) {
  for (const char* malformed : {"", "0002", "0008 03 01  0003 0007", "0009 02 01  0003 0007  00",
                                "000A 04 02  0001 58  01  01 00"}) {
    CPacketBuilder builder = ReplyTo(malformed);
    const uint8_t data = 0x41;
    EXPECT_FALSE(builder.SetStatus(0)) << malformed;
    EXPECT_FALSE(builder.AddBlock(&data, 2, 1)) << malformed;
    EXPECT_TRUE(builder.Bytes().empty()) << malformed;
  }
}

TEST(PacketBuilderTest, ABuilderOfAParsedDataCommandTakesBlocks) {
  CPacketBuilder builder = ReplyTo("0008 04 02  0001 58  00");
  const uint8_t data = 0x41;
  EXPECT_FALSE(builder.SetStatus(0));
  EXPECT_TRUE(builder.AddBlock(&data, 2, 1));
  EXPECT_EQ(Packed("000C 04 02  0001 58  01  02 0001 41"), HexOf(builder));
}

TEST(PacketBuilderTest, ANameOf65529BytesAndItsStatusFillOnePacketAndTheNextWraps) {
  CPacketBuilder reply(kCommandOpen, std::string(65529, 'N'));
  EXPECT_EQ("FFFF0102FFF94E", ToHex(reply.Bytes().data(), 7));
  EXPECT_TRUE(reply.SetStatus(0));
  EXPECT_EQ("0001", ToHex(reply.Bytes().data(), 2));
}

TEST(PacketBuilderTest, NoAppendMovesAPacketThatFitsItsLengthField) {
  const std::vector<uint8_t> data(65523, 0x5A);
  CPacketBuilder notification(kCommandData, 1, 2);
  const uint8_t* before = notification.Bytes().data();
  ASSERT_TRUE(notification.AddBlock(data.data(), 2, 65523));  // 8 + 1 + 3 + 65523 = 65535
  EXPECT_EQ(before, notification.Bytes().data());
  EXPECT_EQ("FFFF", ToHex(notification.Bytes().data(), 2));
}

}  // namespace
