// SPDX-License-Identifier: MIT
#include "serial/HexDump.h"

#include <string_view>

void FormatHexDump(const uint8_t* data, size_t length, std::string& text) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  text = "Received(";
  text += std::to_string(length);
  text += "):";
  const size_t head = text.size();
  text.resize(head + 3 * length);
  char* out = text.data() + head;
  for (size_t i = 0; i < length; ++i) {
    *out++ = kDigits[data[i] >> 4];
    *out++ = kDigits[data[i] & 0xF];
    *out++ = ' ';
  }
  text += '\n';
}
