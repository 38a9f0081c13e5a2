// SPDX-License-Identifier: MIT
#include "protocol-doc/Words.h"

#include <cstdio>

namespace {

std::string Hex4(uint16_t value) {
  char text[5] = {};
  (void)std::snprintf(text, sizeof text, "%04X", static_cast<unsigned>(value));
  return text;
}

std::string Ids(uint16_t id1, uint16_t id2) { return Hex4(id1) + ":" + Hex4(id2); }

std::string Character(uint8_t byte) {
  switch (byte) {
    case '\r':
      return "\\r";
    case '\n':
      return "\\n";
    case '"':
    case '\\':
      return {'\\', static_cast<char>(byte)};
    default:
      break;
  }
  if (byte >= 0x20 && byte < 0x7F) {
    return std::string(1, static_cast<char>(byte));
  }
  char text[5] = {};
  (void)std::snprintf(text, sizeof text, "\\x%02X", static_cast<unsigned>(byte));
  return text;
}

std::string Blocks(const CommandPacket& packet) {
  std::string text;
  for (uint32_t i = 0; i < packet.blockCount; ++i) {
    DataBlock block;
    packet.GetBlock(i, block);
    text += (i == 0 ? ": type " : ", type ") + std::to_string(block.type) + " " +
            Quoted({block.data, block.data + block.length});
  }
  return text.empty() ? ": no block" : text;
}

// The cursor of TakeApart. A read past the end marks the packet as wrong.
class Cursor {
 public:
  explicit Cursor(const std::vector<uint8_t>& packet) : bytes(packet) {}

  uint8_t Byte() {
    if (at >= bytes.size()) {
      isWrong = true;
      return 0;
    }
    return bytes[at++];
  }

  uint16_t Word() {
    const uint8_t high = Byte();
    return static_cast<uint16_t>(high * 256 + Byte());
  }

  std::vector<uint8_t> Bytes(size_t count) {
    std::vector<uint8_t> taken;
    for (; count > 0 && !isWrong; --count) {
      taken.push_back(Byte());
    }
    return taken;
  }

  void Must(bool condition) { isWrong = isWrong || !condition; }
  bool EndsWell() const { return !isWrong && at == bytes.size(); }

 private:
  const std::vector<uint8_t>& bytes;
  size_t at = 0;
  bool isWrong = false;
};

}  // namespace

std::string Quoted(const std::vector<uint8_t>& bytes) {
  std::string text = "\"";
  for (const uint8_t byte : bytes) {
    text += Character(byte);
  }
  return text + "\"";
}

std::string Words(const CommandPacket& packet) {
  if (!packet.parsedOk) {
    return "refused";
  }
  const std::string port =
      packet.portForm == 1 ? Ids(packet.portId1, packet.portId2) : packet.portName;
  if (packet.command == 4) {
    return "data for " + port + Blocks(packet);
  }
  return (packet.command == 1 ? "open " : "close ") + port +
         (packet.parameter == 0 ? "" : ", parameter " + Hex4(packet.parameter));
}

std::optional<ServicePacket> TakeApart(const std::vector<uint8_t>& bytes) {
  ServicePacket packet;
  Cursor cursor(bytes);
  cursor.Must(cursor.Word() == bytes.size());
  packet.command = cursor.Byte();
  const uint8_t form = cursor.Byte();
  cursor.Must(form == 1 || form == 2);
  packet.isNamed = form == 2;
  if (packet.isNamed) {
    const std::vector<uint8_t> name = cursor.Bytes(cursor.Word());
    packet.name.assign(name.begin(), name.end());
  } else {
    packet.id1 = cursor.Word();
    packet.id2 = cursor.Word();
  }
  if (packet.command == 4) {
    cursor.Must(cursor.Byte() == 1);
    cursor.Must(cursor.Byte() == 2);
    packet.data = cursor.Bytes(cursor.Word());
  } else {
    cursor.Must(packet.command == 1 || packet.command == 2);
    packet.status = cursor.Word();
  }
  return cursor.EndsWell() ? std::optional(packet) : std::nullopt;
}

std::string Words(const ServicePacket& packet) {
  const std::string port = packet.isNamed ? packet.name : Ids(packet.id1, packet.id2);
  if (packet.command == 4) {
    return "from " + port + ": " + Quoted(packet.data);
  }
  return std::string("reply to ") + (packet.command == 1 ? "open " : "close ") + port +
         ": status " + std::to_string(packet.status);
}
