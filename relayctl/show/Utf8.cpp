// SPDX-License-Identifier: MIT
#include "show/Utf8.h"

#include <cstdint>

namespace {

// First byte, how many follow, and the limits of the second: no longer form than needed, no
// surrogate, nothing above U+10FFFF.
struct Utf8Form {
  uint8_t first;
  uint8_t last;
  uint8_t size;
  uint8_t secondFirst;
  uint8_t secondLast;
};
constexpr Utf8Form kUtf8[] = {
    {0xC2, 0xDF, 2, 0x80, 0xBF}, {0xE0, 0xE0, 3, 0xA0, 0xBF}, {0xE1, 0xEC, 3, 0x80, 0xBF},
    {0xED, 0xED, 3, 0x80, 0x9F}, {0xEE, 0xEF, 3, 0x80, 0xBF}, {0xF0, 0xF0, 4, 0x90, 0xBF},
    {0xF1, 0xF3, 4, 0x80, 0xBF}, {0xF4, 0xF4, 4, 0x80, 0x8F},
};

bool IsWithin(char byte, uint8_t first, uint8_t last) {
  const auto value = static_cast<uint8_t>(byte);
  return value >= first && value <= last;
}

}  // namespace

size_t Utf8Size(std::string_view text) {
  for (const Utf8Form& form : kUtf8) {
    if (!IsWithin(text[0], form.first, form.last)) {
      continue;
    }
    bool isGood = text.size() >= form.size && IsWithin(text[1], form.secondFirst, form.secondLast);
    for (size_t i = 2; isGood && i < form.size; ++i) {
      isGood = IsWithin(text[i], 0x80, 0xBF);
    }
    return isGood ? form.size : 0;
  }
  return 0;
}
