// SPDX-License-Identifier: MIT
#include "protocol/PacketFramer.h"

#include <algorithm>

#include "protocol/WireFormat.h"

// A length of 0 or 1 wraps round to 65534 or 65535 bytes behind the length field.
PacketFramer::PacketFramer() : buffer(kLengthSize + kMaxPacketSize), taken(0), end(kLengthSize) {}

bool PacketFramer::Take(uint16_t count) {
  taken += count;
  if (taken == kLengthSize) {
    end = kLengthSize + static_cast<uint16_t>(Length() - kLengthSize);
    return false;
  }
  return taken == end;
}

void PacketFramer::Drop() {
  std::fill_n(buffer.begin(), end, uint8_t{0});  // the others are still 0
  taken = 0;
  end = kLengthSize;
}

uint16_t PacketFramer::Length() const { return FromBytes(buffer[0], buffer[1]); }
