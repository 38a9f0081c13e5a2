// SPDX-License-Identifier: MIT
#include "show/Printable.h"

std::string Printable(const std::string& text) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string shown;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    // 0x80 to 0x9F are control bytes too, unless they continue a UTF-8 character; that cannot be
    // told byte by byte, so only what every terminal takes for one is replaced.
    if (byte < 0x20 || byte == 0x7F) {
      shown += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xF]};
    } else {
      shown += character;
    }
  }
  return shown;
}
