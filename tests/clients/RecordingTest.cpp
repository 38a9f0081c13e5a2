// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "relay/Error.h"
#include "relay/Recording.h"
#include "relay/Text.h"

namespace {

using relay::Direction;
using relay::FromHex;
using relay::FromLine;
using relay::RecordPacket;
using relay::ToLine;
using std::chrono::microseconds;

struct Line {
  const char* line;
  Direction direction;
  const char* packet;
};

constexpr Line kLines[] = {
    {"0.000391 > X open", Direction::kToService, "0007 01 02 0001 58"},
    {"0.000391 > X open 17989  ; fence", Direction::kToService, "0009 01 02 0001 58 4645"},
    {"0.000391 < X close 2", Direction::kFromService, "0009 02 02 0001 58 0002"},
    {"0.000391 < 0403:6001 close 2", Direction::kFromService, "000A 02 01 0403 6001 0002"},
    {"0.000391 < X data 41 0A  ; \"A\\n\"", Direction::kFromService,
     "000D 04 02 0001 58 01 02 0002 410A"},
    {"0.000391 > - packet 00 04 09 02", Direction::kToService, "0004 09 02"},
    {"0.000391 > a\\x20b open", Direction::kToService, "0009 01 02 0003 612062"},
};

TEST(RecordingTest, ALineIsAPacketAndTheOtherWayRound) {
  for (const Line& one : kLines) {
    const auto event = FromLine(one.line, microseconds(0));
    ASSERT_TRUE(event) << one.line;
    EXPECT_EQ(relay::ToHex(FromHex(one.packet)), relay::ToHex(event->ToPacket())) << one.line;
    EXPECT_EQ(one.direction, event->direction) << one.line;
    const std::string line =
        ToLine(RecordPacket(microseconds(391), one.direction, FromHex(one.packet)));
    const std::string_view written = one.line;
    EXPECT_EQ(written.substr(0, written.find("  ; f")), line);
  }
}

TEST(RecordingTest, TimesCountFromTheLineBefore) {
  const auto events = relay::ReadRecording(
      "; a remark\n\n1.5 ! link up\n+0.25 > X open\n+0 < X open 0\n", "recording");
  ASSERT_EQ(3u, events.size());
  EXPECT_EQ(microseconds(1750000), events[1].time);
  EXPECT_EQ(microseconds(1750000), events[2].time);
}

struct Mistake {
  const char* line;
  const char* told;
};

constexpr Mistake kMistakes[] = {
    {"1 > X", "name:2: "},
    {"x > X open", "name:2: \"x\" is no time in seconds"},
    {"0 > X open", "name:2: "},  // before the line above
    {"2 < X open", "name:2: "},  // a reply without its status
    {"2 < X open 65536", "name:2: \"65536\" is no number from 0 to 65535"},
    {"2 > X shut", "name:2: \"shut\" is none of open, close, data, packet"},
    {"2 > X data 4", "name:2: "},
    {"2 > X data 4G", "name:2: "},
    {"2 ! link sideways", "name:2: "},
};

TEST(RecordingTest, AMistakeIsToldWithItsLine) {
  for (const Mistake& one : kMistakes) {
    try {
      (void)relay::ReadRecording(std::string("1 ! link up\n") + one.line + "\n", "name");
      ADD_FAILURE() << "taken: " << one.line;
    } catch (const relay::Error& error) {
      EXPECT_EQ(relay::ErrorKind::kUsage, error.Kind());
      EXPECT_TRUE(std::string_view(error.what()).starts_with(one.told))
          << one.line << ": " << error.what();
    }
  }
}

}  // namespace
