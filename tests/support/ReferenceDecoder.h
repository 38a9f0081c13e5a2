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

inline unsigned ReferenceByte(const std::string& bytes, size_t at) {
  return static_cast<unsigned char>(bytes.at(at));
}

inline unsigned ReferenceWord(const std::string& bytes, size_t at) {
  return ReferenceByte(bytes, at) * 256 + ReferenceByte(bytes, at + 1);
}

// Whether the bytes from `at` on are a number of blocks and as many blocks.
inline bool ReferenceBlocks(const std::string& bytes, size_t at, ReferencePacket& packet) {
  unsigned count = ReferenceByte(bytes, at);
  for (++at; count > 0; --count) {
    if (at + 3 > bytes.size() || at + 3 + ReferenceWord(bytes, at + 1) > bytes.size()) {
      return false;
    }
    const unsigned length = ReferenceWord(bytes, at + 1);
    packet.blocks.emplace_back(ReferenceByte(bytes, at), bytes.substr(at + 3, length));
    at += 3 + length;
  }
  return at == bytes.size();
}

// Nothing when the packet must be refused.
inline std::optional<ReferencePacket> ReferenceDecode(const std::string& bytes) {
  if (bytes.size() < 8 && !(bytes.size() == 7 && ReferenceByte(bytes, 3) == 2)) {
    return std::nullopt;  // the shortest packets: ids (8), a name of one byte (7)
  }
  ReferencePacket packet;
  packet.command = ReferenceByte(bytes, 2);
  packet.form = ReferenceByte(bytes, 3);
  size_t body = 0;
  if (packet.form == 1) {
    packet.id1 = ReferenceWord(bytes, 4);
    packet.id2 = ReferenceWord(bytes, 6);
    body = 8;
  } else if (packet.form == 2) {
    const size_t nameLength = ReferenceWord(bytes, 4);
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
      packet.parameter = ReferenceWord(bytes, body);
    }
    return left == 0 || left == 2 ? std::optional(packet) : std::nullopt;
  }
  if (packet.command != 4 || left == 0) {
    return std::nullopt;
  }
  return ReferenceBlocks(bytes, body, packet) ? std::optional(packet) : std::nullopt;
}
