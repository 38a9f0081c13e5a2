// SPDX-License-Identifier: MIT
// Bytes as hex text, the fields spaced apart as the reader likes.
#pragma once

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

// "00 0A 0201" → the four bytes. Blanks are ignored.
inline std::vector<uint8_t> FromHex(const std::string& text) {
  std::string digits;
  for (const char character : text) {
    if (std::isspace(static_cast<unsigned char>(character)) == 0) {
      digits += character;
    }
  }
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

// The bytes in upper case without blanks.
inline std::string ToHex(const uint8_t* bytes, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    char pair[3] = {};
    (void)std::snprintf(pair, sizeof pair, "%02X", static_cast<unsigned>(bytes[i]));
    text += pair;
  }
  return text;
}

// Hex text as ToHex writes it, for comparison.
inline std::string Packed(const std::string& text) {
  const std::vector<uint8_t> bytes = FromHex(text);
  return ToHex(bytes.data(), bytes.size());
}
