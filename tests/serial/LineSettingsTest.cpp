// SPDX-License-Identifier: MIT
// What each setting changes in a line's attributes, and what it leaves alone.
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "serial/LineSettings.h"

namespace {

// A value that is not among the named ones, for the settings that a case is not about.
constexpr uint32_t kOther = 99;

constexpr SerialSettings kNothing = {9600, kOther, kOther, kOther, kOther};

struct SpeedCase {
  uint32_t baudRate;
  speed_t constant;
};

void PrintTo(const SpeedCase& test, std::ostream* stream) { *stream << test.baudRate << " baud"; }

class LineSpeedTest : public testing::TestWithParam<SpeedCase> {};

TEST_P(LineSpeedTest, SetsBothDirections) {
  termios attributes{};
  SerialSettings settings = kNothing;
  settings.baudRate = GetParam().baudRate;
  (void)cfsetispeed(&attributes, B4800 == GetParam().constant ? B9600 : B4800);
  (void)cfsetospeed(&attributes, B4800 == GetParam().constant ? B9600 : B4800);
  SetLine(attributes, settings);
  EXPECT_EQ(GetParam().constant, cfgetospeed(&attributes));
  EXPECT_EQ(GetParam().constant, cfgetispeed(&attributes));
}

INSTANTIATE_TEST_SUITE_P(
    Baud, LineSpeedTest,
    testing::Values(SpeedCase{0, B0}, SpeedCase{50, B50}, SpeedCase{75, B75}, SpeedCase{110, B110},
                    SpeedCase{134, B134}, SpeedCase{150, B150}, SpeedCase{200, B200},
                    SpeedCase{300, B300}, SpeedCase{600, B600}, SpeedCase{1200, B1200},
                    SpeedCase{1800, B1800}, SpeedCase{2400, B2400}, SpeedCase{4800, B4800},
                    SpeedCase{9600, B9600}, SpeedCase{19200, B19200}, SpeedCase{38400, B38400},
                    SpeedCase{57600, B57600}, SpeedCase{115200, B115200},
                    SpeedCase{230400, B230400},
                    // Unknown ones. termios itself knows the last but one.
                    SpeedCase{14400, B9600}, SpeedCase{1, B9600}, SpeedCase{460800, B9600},
                    SpeedCase{4294967295U, B9600}),
    [](const auto& test) { return "Of" + std::to_string(test.param.baudRate); });

struct FlagCase {
  const char* name;
  uint32_t SerialSettings::*setting;
  uint32_t value;
  tcflag_t clears;
  tcflag_t sets;
  tcflag_t clearsInput = 0;
  tcflag_t setsInput = 0;
};

void PrintTo(const FlagCase& test, std::ostream* stream) { *stream << test.name; }

// All but those in which termios keeps the speed.
constexpr tcflag_t kLineFlags = CSIZE | PARENB | PARODD | CMSPAR | CSTOPB | CRTSCTS;
constexpr tcflag_t kInputFlags = IGNBRK | BRKINT | IGNPAR | PARMRK | INPCK | ISTRIP | INLCR |
                                 IGNCR | ICRNL | IXON | IXANY | IXOFF | IMAXBEL;

class LineFlagTest : public testing::TestWithParam<FlagCase> {
 protected:
  // The attributes after the case's setting, all flags of the line having been `before`.
  static termios After(bool before) {
    termios attributes{};
    attributes.c_cflag = before ? kLineFlags : 0;
    attributes.c_iflag = before ? kInputFlags : 0;
    SerialSettings settings = kNothing;
    settings.*GetParam().setting = GetParam().value;
    SetLine(attributes, settings);
    attributes.c_cflag &= kLineFlags;
    attributes.c_iflag &= kInputFlags;
    return attributes;
  }
};

TEST_P(LineFlagTest, SetsItsFlagsAndNoOther) {
  EXPECT_EQ(GetParam().sets, After(false).c_cflag);
  EXPECT_EQ(GetParam().setsInput, After(false).c_iflag);
}

TEST_P(LineFlagTest, ClearsItsFlagsAndNoOther) {
  EXPECT_EQ(kLineFlags & ~GetParam().clears, After(true).c_cflag);
  EXPECT_EQ(kInputFlags & ~GetParam().clearsInput, After(true).c_iflag);
}

constexpr auto kData = &SerialSettings::dataBits;
constexpr auto kPar = &SerialSettings::parity;
constexpr auto kStop = &SerialSettings::stopBits;
constexpr auto kFlow = &SerialSettings::flowControl;

INSTANTIATE_TEST_SUITE_P(
    Setting, LineFlagTest,
    testing::Values(
        FlagCase{"DataBits7", kData, 7, CSIZE & ~CS7, CS7}, FlagCase{"DataBits8", kData, 8, 0, CS8},
        FlagCase{"DataBits5IsUnknown", kData, 5, 0, 0},
        FlagCase{"DataBits6IsUnknown", kData, 6, 0, 0}, FlagCase{"ParityNone", kPar, 0, PARENB, 0},
        FlagCase{"ParityOdd", kPar, 1, CMSPAR, PARENB | PARODD},
        FlagCase{"ParityEven", kPar, 2, PARODD | CMSPAR, PARENB},
        FlagCase{"ParityMark", kPar, 3, 0, PARENB | PARODD | CMSPAR},
        FlagCase{"ParitySpace", kPar, 4, PARODD, PARENB | CMSPAR},
        FlagCase{"Parity5IsUnknown", kPar, 5, 0, 0}, FlagCase{"Parity7IsUnknown", kPar, 7, 0, 0},
        FlagCase{"StopBitsOne", kStop, 0, CSTOPB, 0},
        FlagCase{"StopBitsOneAndAHalfChangeNothing", kStop, 1, 0, 0},
        FlagCase{"StopBitsTwo", kStop, 2, 0, CSTOPB},
        FlagCase{"StopBits3AreUnknown", kStop, 3, 0, 0},
        FlagCase{"NoFlowControl", kFlow, 0, CRTSCTS, 0, IXON | IXOFF, 0},
        FlagCase{"HardwareFlowControl", kFlow, 1, 0, CRTSCTS, IXON | IXOFF, 0},
        FlagCase{"XonXoff", kFlow, 2, CRTSCTS, 0, 0, IXON | IXOFF},
        FlagCase{"FlowControl3IsUnknown", kFlow, 3, 0, 0, 0, 0}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(LineSettingsTest, RawModeClearsWhatAnEarlierUserMayHaveSet) {
  termios attributes{};
  attributes.c_iflag = ~tcflag_t{0};
  attributes.c_oflag = ~tcflag_t{0};
  attributes.c_lflag = ~tcflag_t{0};
  attributes.c_cflag = CSIZE | PARENB | PARODD | CMSPAR | CSTOPB | CRTSCTS | HUPCL;
  attributes.c_cc[VMIN] = 7;
  attributes.c_cc[VTIME] = 7;
  SetRawMode(attributes);
  EXPECT_EQ(CS8 | CLOCAL | CREAD | HUPCL,
            attributes.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS | CLOCAL | CREAD | HUPCL));
  EXPECT_EQ(0U, attributes.c_iflag &
                    (IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | IXON | IXOFF));
  EXPECT_EQ(0U, attributes.c_oflag & OPOST);
  EXPECT_EQ(0U, attributes.c_lflag & (ECHO | ECHONL | ICANON | ISIG | IEXTEN));
  EXPECT_EQ(0, attributes.c_cc[VMIN]);
  EXPECT_EQ(1, attributes.c_cc[VTIME]);
}

TEST(LineSettingsTest, XonXoffSetsTheStartAndStopCharacters) {
  termios attributes{};
  SerialSettings settings = kNothing;
  settings.flowControl = kXonXoff;
  SetLine(attributes, settings);
  EXPECT_EQ(0x11, attributes.c_cc[VSTART]);
  EXPECT_EQ(0x13, attributes.c_cc[VSTOP]);
}

TEST(LineSettingsTest, OtherFlowControlLeavesTheStartAndStopCharacters) {
  for (const uint32_t flowControl : {0U, 1U, 3U}) {
    termios attributes{};
    attributes.c_cc[VSTART] = 0x21;
    attributes.c_cc[VSTOP] = 0x23;
    SerialSettings settings = kNothing;
    settings.flowControl = flowControl;
    SetLine(attributes, settings);
    EXPECT_EQ(0x21, attributes.c_cc[VSTART]) << flowControl;
    EXPECT_EQ(0x23, attributes.c_cc[VSTOP]) << flowControl;
  }
}

TEST(LineSettingsTest, ThePortsInitialSettingsAre9600Baud7DataBitsEvenParity1StopBit) {
  const SerialSettings settings;
  EXPECT_EQ(9600U, settings.baudRate);
  EXPECT_EQ(7U, settings.dataBits);
  EXPECT_EQ(2U, settings.parity);
  EXPECT_EQ(0U, settings.stopBits);
  EXPECT_EQ(0U, settings.flowControl);
}

}  // namespace
