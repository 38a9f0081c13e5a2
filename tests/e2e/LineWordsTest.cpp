// SPDX-License-Identifier: MIT
// What the setting words of a port's configuration make of its line. A pseudo-terminal keeps
// speed, stop bits, flow control and the kind of parity, but always has 8 data bits and no parity
// bit.
#include "e2e/ServiceTest.h"

namespace {

struct LineCase {
  const char* name;
  const char* words;
  speed_t speed;
  tcflag_t control;  // of CSTOPB, CRTSCTS, PARODD and CMSPAR
  tcflag_t input;    // of IXON and IXOFF
};

void PrintTo(const LineCase& row, std::ostream* out) { *out << row.name; }

constexpr LineCase kLineCases[] = {
    {"Baud2400", "2400 8 none 1 none", B2400, 0, 0},
    {"Baud4800", "4800 8 none 1 none", B4800, 0, 0},
    {"Baud9600", "9600 8 none 1 none", B9600, 0, 0},
    {"Baud19200", "19200 8 none 1 none", B19200, 0, 0},
    {"Baud38400", "38400 8 none 1 none", B38400, 0, 0},
    {"Baud57600", "57600 8 none 1 none", B57600, 0, 0},
    {"Baud115200", "115200 8 none 1 none", B115200, 0, 0},
    {"Baud110IsNoWordAndCountsAs0", "110 8 none 1 none", B0, 0, 0},
    {"SevenDataBits", "9600 7 none 1 none", B9600, 0, 0},
    {"UnknownDataBits", "9600 5 none 1 none", B9600, 0, 0},
    {"ParityOdd", "9600 8 odd 1 none", B9600, PARODD, 0},
    {"ParityEven", "9600 8 even 1 none", B9600, 0, 0},
    {"ParityMark", "9600 8 mark 1 none", B9600, PARODD | CMSPAR, 0},
    {"ParitySpace", "9600 8 space 1 none", B9600, CMSPAR, 0},
    {"ParityInCapitalsIsNoWord", "9600 8 ODD 1 none", B9600, 0, 0},
    {"OneAndAHalfStopBitsStayOne", "9600 8 none 1.5 none", B9600, 0, 0},
    {"TwoStopBits", "9600 8 none 2 none", B9600, CSTOPB, 0},
    {"UnknownStopBits", "9600 8 none 3 none", B9600, 0, 0},
    {"HardwareFlowControl", "9600 8 none 1 hardware", B9600, CRTSCTS, 0},
    {"XOnXOff", "9600 8 none 1 XOnXOff", B9600, 0, IXON | IXOFF},
    {"XonxoffIsNoWord", "9600 8 none 1 xonxoff", B9600, 0, 0},
};

class LineWordsTest : public ServiceTest, public testing::WithParamInterface<LineCase> {};

TEST_P(LineWordsTest, WordsBecomeTheLineSettings) {
  configuration.Port("#PhysicalPort0", GetParam().words);
  StartWithOpenPort();
  const termios line = device->Settings();
  EXPECT_EQ(GetParam().speed, cfgetospeed(&line));
  EXPECT_EQ(GetParam().speed, cfgetispeed(&line));
  EXPECT_EQ(GetParam().control, line.c_cflag & (CSTOPB | CRTSCTS | PARODD | CMSPAR));
  EXPECT_EQ(GetParam().input, line.c_iflag & (IXON | IXOFF));
}

INSTANTIATE_TEST_SUITE_P(Words, LineWordsTest, testing::ValuesIn(kLineCases), NameOf<LineCase>);

TEST_F(LineWordsTest, ABaudWordFollowedByABlankCountsAs0) {
  Configuration::Text(
      "[#PhysicalPort0]\nbaud = \"9600 \"\ndata = 8\nparity = none\nstop = 1\nflow = none\n");
  StartWithOpenPort();
  const termios line = device->Settings();
  EXPECT_EQ(speed_t{B0}, cfgetospeed(&line));
}

TEST_F(LineWordsTest, TheLineIsRaw) {
  StartWithOpenPort();
  const termios line = device->Settings();
  EXPECT_EQ(0U, line.c_lflag & (ECHO | ICANON | ISIG | IEXTEN));
  EXPECT_EQ(0U, line.c_iflag & (ICRNL | INLCR | IGNCR | ISTRIP | BRKINT));
  EXPECT_EQ(0U, line.c_oflag & OPOST);
  EXPECT_EQ(0, line.c_cc[VMIN]);
  EXPECT_EQ(1, line.c_cc[VTIME]);
}

}  // namespace
