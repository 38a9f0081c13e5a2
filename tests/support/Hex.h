// SPDX-License-Identifier: MIT
// Bytes as hex text, the fields spaced apart as the reader likes.
#pragma once

#include <cctype>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

inline constexpr std::string_view kHexDigits = "0123456789ABCDEF";

// "00 0A 0201" → the four bytes. Blanks are ignored; anything else throws.
inline std::vector<uint8_t> FromHex(const std::string& text) {
  std::vector<uint8_t> bytes;
  bytes.reserve(text.size() / 2);
  bool isSecond = false;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (std::isspace(byte) != 0) {
      continue;
    }
    const size_t digit = kHexDigits.find(static_cast<char>(std::toupper(byte)));
    if (digit == std::string_view::npos) {
      throw std::invalid_argument("no hex text: " + text.substr(0, 80));
    }
    if (isSecond) {
      const size_t high = bytes.back();
      bytes.back() = static_cast<uint8_t>(high * 16 + digit);
    } else {
      bytes.push_back(static_cast<uint8_t>(digit));
    }
    isSecond = !isSecond;
  }
  return bytes;
}

// The bytes in upper case without blanks.
inline std::string ToHex(const uint8_t* bytes, size_t count) {
  std::string text(2 * count, '0');
  for (size_t i = 0; i < count; ++i) {
    text[2 * i] = kHexDigits[bytes[i] >> 4];
    text[2 * i + 1] = kHexDigits[bytes[i] & 0xF];
  }
  return text;
}

// Hex text as ToHex writes it, for comparison.
inline std::string Packed(const std::string& text) {
  const std::vector<uint8_t> bytes = FromHex(text);
  return ToHex(bytes.data(), bytes.size());
}

inline std::string Repeated(const std::string& text, int count) {
  std::string result;
  for (int i = 0; i < count; ++i) {
    result += text;
  }
  return result;
}
