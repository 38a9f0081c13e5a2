// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

enum Parity : uint32_t {
  kParityNone = 0,
  kParityOdd = 1,
  kParityEven = 2,
  kParityMark = 3,
  kParitySpace = 4,
};

enum StopBits : uint32_t { kOneStopBit = 0, kOneAndAHalfStopBits = 1, kTwoStopBits = 2 };

enum FlowControl : uint32_t { kNoFlowControl = 0, kHardwareFlowControl = 1, kXonXoff = 2 };

// How a line is to be set. A value that is not among those named leaves what raw mode gives: 8
// bits, no parity, one stop bit, no flow control; an unknown speed means 9600.
struct SerialSettings {
  uint32_t baudRate = 9600;  // bits per second
  uint32_t dataBits = 7;     // 7 or 8
  uint32_t parity = kParityEven;
  uint32_t stopBits = kOneStopBit;
  uint32_t flowControl = kNoFlowControl;
};
