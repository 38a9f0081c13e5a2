// SPDX-License-Identifier: MIT
// A second decoder of command packets, written from the format's picture and sharing nothing with
// the service's: it computes where each field must lie before it looks at any.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

struct ReferencePacket {
  unsigned command = 0;
  unsigned form = 0;
  unsigned id1 = 0;
  unsigned id2 = 0;
  std::string name;
  unsigned parameter = 0;
  std::vector<std::pair<unsigned, std::string>> blocks;  // type and data
};

// Nothing when the packet must be refused.
inline std::optional<ReferencePacket> ReferenceDecode(const std::string& bytes) {
  const auto byteAt = [&](size_t i) { return static_cast<unsigned char>(bytes.at(i)); };
  const auto wordAt = [&](size_t i) { return byteAt(i) * 256U + byteAt(i + 1); };
  if (bytes.size() < 8 && !(bytes.size() == 7 && byteAt(3) == 2)) {
    return std::nullopt;  // the shortest packets: ids (8), a name of one byte (7)
  }
  ReferencePacket packet;
  packet.command = byteAt(2);
  packet.form = byteAt(3);
  size_t body = 0;
  if (packet.form == 1) {
    packet.id1 = wordAt(4);
    packet.id2 = wordAt(6);
    body = 8;
  } else if (packet.form == 2) {
    const size_t nameLength = wordAt(4);
    body = 6 + nameLength;
    if (nameLength == 0 || body > bytes.size()) {
      return std::nullopt;
    }
    packet.name = bytes.substr(6, nameLength).c_str();
  } else {
    return std::nullopt;
  }
  const size_t left = bytes.size() - body;
  if (packet.command == 1 || packet.command == 2) {
    if (left == 2) {
      packet.parameter = wordAt(body);
    }
    return left == 0 || left == 2 ? std::optional(packet) : std::nullopt;
  }
  if (packet.command != 4 || left == 0) {
    return std::nullopt;
  }
  size_t at = body + 1;
  for (unsigned count = byteAt(body); count > 0; --count) {
    if (at + 3 > bytes.size() || at + 3 + wordAt(at + 1) > bytes.size()) {
      return std::nullopt;
    }
    packet.blocks.emplace_back(byteAt(at), bytes.substr(at + 3, wordAt(at + 1)));
    at += 3 + wordAt(at + 1);
  }
  return at == bytes.size() ? std::optional(packet) : std::nullopt;
}
