// SPDX-License-Identifier: MIT
#include "serial/LineSettings.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr cc_t kReadTimeoutTenths = 1;
constexpr cc_t kXon = 0x11;
constexpr cc_t kXoff = 0x13;

struct Speed {
  uint32_t baudRate;
  speed_t constant;
};

constexpr Speed kSpeeds[] = {
    {0, B0},         {50, B50},       {75, B75},         {110, B110},       {134, B134},
    {150, B150},     {200, B200},     {300, B300},       {600, B600},       {1200, B1200},
    {1800, B1800},   {2400, B2400},   {4800, B4800},     {9600, B9600},     {19200, B19200},
    {38400, B38400}, {57600, B57600}, {115200, B115200}, {230400, B230400},
};

// What one setting clears and sets in a word of flags. The first row that has the value counts; a
// value without a row changes nothing.
struct FlagRow {
  uint32_t value;
  tcflag_t clear;
  tcflag_t set;
};

constexpr FlagRow kDataBits[] = {
    {7, CSIZE, CS7},
    {8, 0, CS8},
};

constexpr FlagRow kParity[] = {
    {kParityNone, PARENB, 0},
    {kParityOdd, CMSPAR, PARENB | PARODD},
    {kParityEven, PARODD | CMSPAR, PARENB},
    {kParityMark, 0, PARENB | PARODD | CMSPAR},
    {kParitySpace, PARODD, PARENB | CMSPAR},
};

// One and a half stop bits have no row: termios cannot express them, raw mode's one stays.
constexpr FlagRow kStopBits[] = {
    {kOneStopBit, CSTOPB, 0},
    {kTwoStopBits, 0, CSTOPB},
};

constexpr FlagRow kFlowControl[] = {
    {kNoFlowControl, CRTSCTS, 0},
    {kHardwareFlowControl, 0, CRTSCTS},
    {kXonXoff, CRTSCTS, 0},
};

constexpr FlagRow kFlowControlInput[] = {
    {kNoFlowControl, IXON | IXOFF, 0},
    {kHardwareFlowControl, IXON | IXOFF, 0},
    {kXonXoff, 0, IXON | IXOFF},
};

template <size_t rows>
void Apply(const FlagRow (&table)[rows], uint32_t value, tcflag_t& flags) {
  const auto row =
      std::find_if(std::begin(table), std::end(table),
                   [value](const FlagRow& candidate) { return candidate.value == value; });
  if (row != std::end(table)) {
    flags = (flags & ~row->clear) | row->set;
  }
}

speed_t SpeedConstant(uint32_t baudRate) {
  const auto row =
      std::find_if(std::begin(kSpeeds), std::end(kSpeeds),
                   [baudRate](const Speed& speed) { return speed.baudRate == baudRate; });
  return row != std::end(kSpeeds) ? row->constant : B9600;
}

}  // namespace

void SetRawMode(termios& attributes) {
  cfmakeraw(&attributes);
  // It leaves these as the last user of the line had them, who may not have been us.
  attributes.c_cflag &= ~(tcflag_t{CSTOPB} | CRTSCTS);
  attributes.c_iflag &= ~tcflag_t{IXOFF};
  attributes.c_cflag |= CLOCAL | CREAD;
  attributes.c_cc[VMIN] = 0;
  attributes.c_cc[VTIME] = kReadTimeoutTenths;
}

void SetLine(termios& attributes, const SerialSettings& settings) {
  const speed_t speed = SpeedConstant(settings.baudRate);
  (void)cfsetispeed(&attributes, speed);  // fails for no constant of the table
  (void)cfsetospeed(&attributes, speed);
  Apply(kDataBits, settings.dataBits, attributes.c_cflag);
  Apply(kParity, settings.parity, attributes.c_cflag);
  Apply(kStopBits, settings.stopBits, attributes.c_cflag);
  Apply(kFlowControl, settings.flowControl, attributes.c_cflag);
  Apply(kFlowControlInput, settings.flowControl, attributes.c_iflag);
  if (settings.flowControl == kXonXoff) {
    attributes.c_cc[VSTART] = kXon;
    attributes.c_cc[VSTOP] = kXoff;
  }
}
