// SPDX-License-Identifier: MIT
#include "link/CommandStream.h"

#include <cstring>

std::optional<std::string> CommandStream::Next() {
  while (!input.IsEmpty() && !IsBroken()) {
    const std::string_view bytes = input.View().substr(0, framer.Wanted());
    std::memcpy(framer.Space(), bytes.data(), bytes.size());
    const bool isWhole = framer.Take(static_cast<uint16_t>(bytes.size()));
    input.Take(bytes.size());
    if (isWhole) {
      std::string packet(reinterpret_cast<const char*>(framer.Packet()), framer.Length());
      framer.Drop();
      return packet;
    }
  }
  return std::nullopt;
}

void CommandStream::Clear() {
  framer.Drop();
  input.Clear();
}
