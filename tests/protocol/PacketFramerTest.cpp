// SPDX-License-Identifier: MIT
// How much the framer wants, and when a packet is complete.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "protocol/PacketFramer.h"
#include "support/Hex.h"

namespace {

using testing::ElementsAre;

// Feeds a stream in pieces, each as large as is wanted but no larger than `pieceSize`.
std::vector<std::string> EventsOf(const std::string& hexText, uint16_t pieceSize) {
  const std::vector<uint8_t> stream = FromHex(hexText);
  std::vector<std::string> events;
  PacketFramer framer;
  for (size_t at = 0;;) {
    events.push_back("wants " + std::to_string(framer.Wanted()));
    const auto count =
        static_cast<uint16_t>(std::min<size_t>({framer.Wanted(), pieceSize, stream.size() - at}));
    if (count == 0) {
      return events;
    }
    std::copy_n(stream.data() + at, count, framer.Space());
    at += count;
    if (framer.Take(count)) {
      events.push_back("packet " + ToHex(framer.Packet(), framer.Length()));
      framer.Drop();
    }
  }
}

TEST(PacketFramerTest, APacketArrivingOneByteAtATimeIsCompleteWithItsTenthByte) {
  EXPECT_THAT(
      EventsOf("000A 02 01 0003 0007 0005", 1),
      ElementsAre("wants 2", "wants 1", "wants 8", "wants 7", "wants 6", "wants 5", "wants 4",
                  "wants 3", "wants 2", "wants 1", "packet 000A0201000300070005", "wants 2"));
}

TEST(PacketFramerTest, NothingBehindThePacketIsWanted) {
  EXPECT_THAT(EventsOf("0005 010203  0003 7F", 100),
              ElementsAre("wants 2", "wants 3", "packet 0005010203", "wants 2", "wants 1",
                          "packet 00037F", "wants 2"));
}

TEST(PacketFramerTest, LengthField2Wants0BytesAndIsNeverComplete) {
  EXPECT_THAT(EventsOf("0002 AB", 100), ElementsAre("wants 2", "wants 0"));
}

TEST(PacketFramerTest, LengthField0Wants65534FurtherBytes) {
  EXPECT_THAT(EventsOf("0000 " + Repeated("5A", 65534), 65535),
              ElementsAre("wants 2", "wants 65534", "packet ", "wants 2"));
}

TEST(PacketFramerTest, LengthField1Wants65535FurtherBytes) {
  EXPECT_THAT(EventsOf("0001 " + Repeated("5A", 65535), 65535),
              ElementsAre("wants 2", "wants 65535", "packet 00", "wants 2"));
}

TEST(PacketFramerTest, ThePacketOf65535BytesComesWhole) {
  const std::string packet = "FFFF" + Repeated("5A", 65533);
  EXPECT_THAT(EventsOf(packet, 65535),
              ElementsAre("wants 2", "wants 65533", "packet " + packet, "wants 2"));
}

TEST(PacketFramerTest, BehindAPacketAllIs0AlsoAfterALongerOne) {
  PacketFramer framer;
  for (const uint8_t length : {uint8_t{100}, uint8_t{3}}) {
    framer.Space()[1] = length;
    EXPECT_FALSE(framer.Take(2));
    std::fill_n(framer.Space(), framer.Wanted(), uint8_t{0xFF});
    EXPECT_TRUE(framer.Take(framer.Wanted()));
    EXPECT_EQ(0, std::count_if(framer.Packet() + length, framer.Packet() + 65535,
                               [](uint8_t byte) { return byte != 0; }));
    framer.Drop();
  }
}

}  // namespace
