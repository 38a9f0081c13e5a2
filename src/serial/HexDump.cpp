// SPDX-License-Identifier: MIT
#include "serial/HexDump.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace {

using Shown = std::array<char, 3>;

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

void FormatHexDump(const uint8_t* data, size_t length, std::string& text) {
  text = "Received(";
  text += std::to_string(length);
  text += "):";
  const size_t head = text.size();
  text.resize(head + sizeof(Shown) * length);
  char* out = text.data() + head;
  for (size_t i = 0; i < length; ++i) {
    const Shown& shown = kShown[data[i]];
    out = std::copy(shown.begin(), shown.end(), out);
  }
  text += '\n';
}
