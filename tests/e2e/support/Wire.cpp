// SPDX-License-Identifier: MIT
#include "e2e/support/Wire.h"

#include "support/Hex.h"

std::string HexOf(const std::string& bytes) {
  return ToHex(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

std::string Wire(const std::string& text) {
  std::string hex;
  bool inQuotes = false;
  for (const char character : text) {
    if (character == '\'') {
      inQuotes = !inQuotes;
    } else if (inQuotes) {
      hex += HexOf(std::string(1, character));
    } else {
      hex += character;
    }
  }
  return Packed(hex);
}

std::vector<uint8_t> WireBytes(const std::string& text) { return FromHex(Wire(text)); }
