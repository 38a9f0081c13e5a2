// SPDX-License-Identifier: MIT
#include "core/SettingWords.h"

#include "serial/SerialSettings.h"

WordTable BaudRateWords() {
  return {{"2400", 2400},   {"4800", 4800},   {"9600", 9600},    {"19200", 19200},
          {"38400", 38400}, {"57600", 57600}, {"115200", 115200}};
}

WordTable DataBitsWords() { return {{"7", 7}, {"8", 8}}; }

WordTable ParityWords() {
  return {{"none", kParityNone},
          {"odd", kParityOdd},
          {"even", kParityEven},
          {"mark", kParityMark},
          {"space", kParitySpace}};
}

WordTable StopBitsWords() {
  return {{"1", kOneStopBit}, {"1.5", kOneAndAHalfStopBits}, {"2", kTwoStopBits}};
}

WordTable FlowControlWords() {
  return {{"none", kNoFlowControl}, {"hardware", kHardwareFlowControl}, {"XOnXOff", kXonXoff}};
}
