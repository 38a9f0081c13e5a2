// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <limits>
#include <string>

#include "libKXLogger/LogLine.h"

namespace {

using kxlogger::kLineSize;
using kxlogger::LogRecord;
using kxlogger::LogTime;
using std::string_literals::operator""s;

LogTime At(std::int64_t seconds, std::uint32_t microseconds) {
  return {std::chrono::sys_seconds(std::chrono::seconds(seconds)), microseconds};
}

LogRecord Record(std::string_view message) {
  return {
      At(1795206601, 123456), 3, "SerialPortHandler", "SerialPortHandler.cpp", "87", "4", message};
}

constexpr std::string_view kHead =
    "2026-11-20T20:30:01.123456Z 3 SerialPortHandler SerialPortHandler.cpp:87 4 ";

std::string Compose(const LogRecord& record, std::string_view prefix = "",
                    std::size_t size = kLineSize) {
  std::string buffer(size, '?');
  buffer.resize(kxlogger::ComposeLine(buffer, prefix, record));
  return buffer;
}

std::string Message(std::string_view message) {
  const std::string line = Compose(Record(message));
  EXPECT_EQ(kHead, line.substr(0, kHead.size()));
  EXPECT_EQ('\n', line.back());
  return line.substr(kHead.size(), line.size() - kHead.size() - 1);
}

std::string Timestamp(LogTime time) {
  LogRecord record = Record("");
  record.time = time;
  const std::string line = Compose(record);
  return line.substr(0, line.find(' '));
}

TEST(LogLineTest, HoldsItsFieldsWithSingleBlanksBetween) {
  EXPECT_EQ(
      "2026-11-20T20:30:01.123456Z 3 SerialPortHandler SerialPortHandler.cpp:87 4 "
      "Serial Port Handler start running.\n",
      Compose(Record("Serial Port Handler start running.")));
}

TEST(LogLineTest, TimeIsCutOffAtTheMicrosecond) {
  EXPECT_EQ("1970-01-01T00:00:05.999999Z", Timestamp(kxlogger::TimeOf({5, 999'999'999})));
  EXPECT_EQ("1970-01-01T00:00:05.000000Z", Timestamp(kxlogger::TimeOf({5, 999})));
}

TEST(LogLineTest, TimeIsUtcWithSixDigitsOfMicroseconds) {
  EXPECT_EQ("1970-01-01T00:00:00.000000Z", Timestamp(At(0, 0)));
  EXPECT_EQ("1969-12-31T23:59:59.999999Z", Timestamp(At(-1, 999999)));
  EXPECT_EQ("2000-02-29T00:00:00.000001Z", Timestamp(At(951782400, 1)));
  EXPECT_EQ("2001-09-09T01:46:40.000000Z", Timestamp(At(1000000000, 0)));
  EXPECT_EQ("2024-02-29T23:59:59.000010Z", Timestamp(At(1709251199, 10)));
  EXPECT_EQ("2024-12-31T00:00:00.000000Z", Timestamp(At(1735603200, 0)));
}

TEST(LogLineTest, TimeBehind2038IsRight) {
  EXPECT_EQ("2038-01-19T03:14:08.000000Z", Timestamp(At(2147483648, 0)));
  EXPECT_EQ("2100-03-01T00:00:00.000000Z", Timestamp(At(4107542400, 0)));
}

TEST(LogLineTest, TimeIsTheCLibrarysUpToBothEndsOfFourDigitYears) {
  constexpr std::int64_t kFirst = -62'167'219'200;
  constexpr std::int64_t kLast = 253'402'300'799;
  const auto expectSame = [](std::int64_t second) {
    const std::time_t time = second;
    tm parts = {};
    ASSERT_NE(nullptr, gmtime_r(&time, &parts));
    std::array<char, 64> text = {};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.000042Z",
                  parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour,
                  parts.tm_min, parts.tm_sec);
    EXPECT_EQ(text.data(), Timestamp(At(second, 42))) << second;
  };
  for (std::int64_t second = kFirst; second <= kLast; second += std::int64_t{86'399} * 997) {
    expectSame(second);
  }
  expectSame(kLast);
}

TEST(LogLineTest, TimeOutsideOfFourDigitYearsIsTheNearestEnd) {
  EXPECT_EQ("0000-01-01T00:00:00.000000Z", Timestamp(At(-62'167'219'201, 999'999)));
  EXPECT_EQ("9999-12-31T23:59:59.999999Z", Timestamp(At(253'402'300'800, 0)));
  EXPECT_EQ("9999-12-31T23:59:59.999999Z", Timestamp({std::chrono::sys_seconds::max(), 0}));
  EXPECT_EQ("0000-01-01T00:00:00.000000Z", Timestamp({std::chrono::sys_seconds::min(), 999999}));
}

TEST(LogLineTest, LevelIsShownAsItIs) {
  LogRecord record = Record("m");
  record.level = std::numeric_limits<int>::min();
  EXPECT_NE(std::string::npos, Compose(record).find("Z -2147483648 SerialPortHandler "));
  record.level = 0;
  EXPECT_NE(std::string::npos, Compose(record).find("Z 0 SerialPortHandler "));
}

TEST(LogLineTest, NewlinesAtTheEndAreDropped) {
  EXPECT_EQ("text", Message("text\n"));
  EXPECT_EQ("text", Message("text\n\n\n"));
  EXPECT_EQ("", Message("\n\n"));
  EXPECT_EQ("", Message(""));
}

TEST(LogLineTest, OtherControlBytesAreShownInHex) {
  EXPECT_EQ("a\\x0ab", Message("a\nb\n"));
  EXPECT_EQ("\\x0d", Message("\r\n"));
  EXPECT_EQ("\\x00\\x01\\x09\\x1b\\x1f\\x7f", Message("\0\x01\t\x1b\x1f\x7f"s));
}

TEST(LogLineTest, AByteIsShownTheSameWhateverStandsAroundIt) {
  for (int byte = 0; byte < 256; ++byte) {
    std::array<char, 8> hex = {};
    std::snprintf(hex.data(), hex.size(), "\\x%02x", static_cast<unsigned>(byte));
    const std::string shown =
        byte < 0x20 || byte == 0x7f ? hex.data() : std::string(1, static_cast<char>(byte));
    for (std::size_t place = 0; place < 8; ++place) {
      const std::string before(place, ' ');
      const std::string behind(8 - place, '~');
      EXPECT_EQ(before + shown + behind, Message(before + static_cast<char>(byte) + behind))
          << byte << " at " << place;
    }
  }
}

TEST(LogLineTest, PrintableBytesAndUtf8Pass) {
  EXPECT_EQ(" !~\\x", Message(" !~\\x"));
  EXPECT_EQ("\xc3\xa4 \xe7\xb5\x82\xe4\xba\x86 \x80\xff",
            Message("\xc3\xa4 \xe7\xb5\x82\xe4\xba\x86 \x80\xff"));
}

TEST(LogLineTest, ControlBytesInAnyFieldCannotMakeASecondLine) {
  const LogRecord record = {At(0, 0), 1, "m\n", "f\n", "1\n", "t\n", "text"};
  EXPECT_EQ("1970-01-01T00:00:00.000000Z 1 m\\x0a f\\x0a:1\\x0a t\\x0a text\n", Compose(record));
}

TEST(LogLineTest, PrefixStandsInFront) {
  EXPECT_EQ("<6>" + std::string(kHead) + "m\n", Compose(Record("m"), "<6>"));
}

TEST(LogLineTest, LineThatJustFitsIsWhole) {
  const std::string message(kLineSize - 1 - kHead.size(), 'x');
  EXPECT_EQ(std::string(kHead) + message + "\n", Compose(Record(message)));
}

TEST(LogLineTest, LongerLineIsCutVisibly) {
  const std::string message(kLineSize - kHead.size(), 'x');
  EXPECT_EQ(std::string(kHead) + std::string(kLineSize - 4 - kHead.size(), 'x') + "...\n",
            Compose(Record(message)));
  EXPECT_EQ(kLineSize, Compose(Record(std::string(100000, 'x'))).size());
}

TEST(LogLineTest, CutPartsNoHexNotation) {
  const std::string line = Compose(Record(std::string(100, '\x01')), "", kHead.size() + 14);
  EXPECT_EQ(std::string(kHead) + "\\x01\\x01...\n", line);
}

TEST(LogLineTest, NothingStandsBehindTheCutMarkThoughItWouldFit) {
  const std::string line = Compose(Record("\x01\x01\x01\x01 x"), "", kHead.size() + 14);
  EXPECT_EQ(std::string(kHead) + "\\x01\\x01...\n", line);
}

TEST(LogLineTest, CutPartsNoUtf8Character) {
  const std::string line =
      Compose(Record("\xe7\xb5\x82\xe7\xb5\x82\xe7\xb5\x82\xe7\xb5\x82"), "", kHead.size() + 9);
  EXPECT_EQ(std::string(kHead) + "\xe7\xb5\x82...\n", line);
}

TEST(LogLineTest, CutOfBytesThatAreNoUtf8KeepsNearlyAll) {
  const std::string line = Compose(Record(std::string(100000, '\x80')));
  EXPECT_LE(kLineSize - 4, line.size());
  EXPECT_EQ("\x80...\n", line.substr(line.size() - 5));
}

TEST(LogLineTest, ShortestBufferHoldsTheCutMarkAlone) {
  EXPECT_EQ("...\n", Compose(Record("m"), "", 4));
  EXPECT_EQ("...\n", Compose(Record("m"), "<6>2", 4));
}

TEST(LogLineTest, NeverWritesBehindItsBuffer) {
  for (std::size_t size = 4; size < kHead.size() + 40; ++size) {
    std::string buffer(size + 8, '#');
    const std::size_t used = kxlogger::ComposeLine(std::span<char>(buffer.data(), size), "<6>",
                                                   Record("\x01\xe7\xb5\x82 text\x7f \xf0\x9f"));
    EXPECT_LE(used, size);
    EXPECT_EQ('\n', buffer[used - 1]);
    EXPECT_EQ("########", buffer.substr(size));
  }
}

TEST(JournalPrefix, FollowsTheLevel) {
  EXPECT_EQ("<2>", kxlogger::JournalPrefix(0));
  EXPECT_EQ("<3>", kxlogger::JournalPrefix(1));
  EXPECT_EQ("<6>", kxlogger::JournalPrefix(3));
}

TEST(JournalPrefix, LevelsThatNobodyUsesLieBetweenAndBeyond) {
  EXPECT_EQ("<2>", kxlogger::JournalPrefix(std::numeric_limits<int>::min()));
  EXPECT_EQ("<4>", kxlogger::JournalPrefix(2));
  EXPECT_EQ("<7>", kxlogger::JournalPrefix(4));
  EXPECT_EQ("<7>", kxlogger::JournalPrefix(std::numeric_limits<int>::max()));
}

TEST(JournalStream, IsNamedByDeviceAndInode) {
  EXPECT_TRUE(kxlogger::NamesStream("8:4711", 8, 4711));
  EXPECT_TRUE(kxlogger::NamesStream("18446744073709551615:0", 18446744073709551615U, 0));
  EXPECT_FALSE(kxlogger::NamesStream("8:4711", 9, 4711));
  EXPECT_FALSE(kxlogger::NamesStream("8:4711", 8, 4712));
}

TEST(JournalStream, MalformedTextNamesNone) {
  for (const std::string_view text : {"", ":", "0", "0:", ":0", "0:0:", "0:0 ", " 0:0", "-0:0",
                                      "0x0:0", "0;0", "18446744073709551616:0"}) {
    EXPECT_FALSE(kxlogger::NamesStream(text, 0, 0)) << text;
  }
}

}  // namespace
