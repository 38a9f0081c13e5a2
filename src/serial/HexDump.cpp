// SPDX-License-Identifier: MIT
#include "serial/HexDump.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace {

constexpr std::string_view kHead = "Received(";
constexpr size_t kMostDigits = std::numeric_limits<size_t>::digits10 + 1;
constexpr size_t kMostAround = kHead.size() + kMostDigits + std::string_view("):\n").size();

// Two digits and a blank. The fourth character is there so that one store does; what comes next
// goes over it.
using Shown = std::array<char, 4>;
constexpr size_t kCharacters = 3;

constexpr std::array<Shown, 256> EachByteShown() {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::array<Shown, 256> table{};
  for (size_t byte = 0; byte < table.size(); ++byte) {
    table[byte] = {kDigits[byte >> 4], kDigits[byte & 0xF], ' '};
  }
  return table;
}

// Digit by digit it would take twice as long.
constexpr std::array<Shown, 256> kShown = EachByteShown();

}  // namespace

std::string_view FormatHexDump(const uint8_t* data, size_t length, std::string& space) {
  space.resize(std::max(space.size(), kMostAround + kCharacters * length));
  char* out = std::copy(kHead.begin(), kHead.end(), space.data());
  out = std::to_chars(out, out + kMostDigits, length).ptr;
  *out++ = ')';
  *out++ = ':';
  for (size_t i = 0; i < length; ++i, out += kCharacters) {
    const Shown& shown = kShown[data[i]];
    std::copy(shown.begin(), shown.end(), out);
  }
  *out++ = '\n';
  return {space.data(), static_cast<size_t>(out - space.data())};
}
