// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "protocol/CommandPacket.h"

// One packet to the relay service. The header is written by the constructor, the body by one of
// the two appends; the length field is right after each of them, so the bytes can be sent at any
// time. `code` is the packet's command. Never shared between threads.
class CPacketBuilder {
 public:
  CPacketBuilder(uint8_t code, uint16_t portId1, uint16_t portId2);  // numbered header
  CPacketBuilder(uint8_t code, const std::string& portName);         // named header

  // The header of the reply to `request`: its command and its port identity. Stays empty, and
  // refuses both appends, when the request did not parse.
  explicit CPacketBuilder(const CommandPacket& request);

  // Appends the status of a reply. False, and nothing changes, unless the command is open or close.
  bool SetStatus(uint16_t status);

  // Appends one block. False, and nothing changes, unless the command is data, for no bytes, and
  // when the packet so far and the data together reach 65536 bytes.
  bool AddBlock(const uint8_t* data, uint8_t blockType, uint16_t dataLength);

  const std::vector<uint8_t>& Bytes() const { return bytes; }

 private:
  void WriteNumberedHeader(uint8_t code, uint16_t portId1, uint16_t portId2);
  void WriteNamedHeader(uint8_t code, const std::string& portName);
  void Begin(uint8_t code, uint8_t portForm, uint16_t headerLength);
  void CountBlock();
  void Append16(uint16_t value);
  void SetLength(uint16_t value);

  uint16_t length = 0;
  uint8_t command = 0;  // decides which append is allowed
  std::vector<uint8_t> bytes;
  uint8_t blockCount = 0;   // modulo 256
  uint32_t countIndex = 0;  // where the block count stands in `bytes`
};
