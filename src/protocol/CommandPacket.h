// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// One block of a data command. `data` belongs to the CommandPacket that the block came from.
struct DataBlock {
  uint8_t type = 0;
  uint16_t length = 0;
  const uint8_t* data = nullptr;
};

// One packet from the relay service, parsed from a private copy of its bytes. Fields that the
// packet does not carry are zero or empty.
class CommandPacket {
 public:
  // `byteCount` counts, whatever the packet's own length field says. A malformed packet never
  // throws: `parsedOk` tells.
  CommandPacket(const uint8_t* bytes, uint32_t byteCount);
  CommandPacket(const CommandPacket&) = delete;
  CommandPacket& operator=(const CommandPacket&) = delete;

  // A shallow copy of the block, valid while this packet lives. `block` is left as it is when
  // there is no such block.
  void GetBlock(uint32_t index, DataBlock& block) const;

  bool parsedOk = false;  // the whole packet was well formed and nothing was left over

  uint8_t command = 0;
  uint8_t portForm = 0;
  uint16_t portId1 = 0;     // numbered form: USB vendor id
  uint16_t portId2 = 0;     // numbered form: USB product id
  uint16_t nameLength = 0;  // named form: as in the packet, bytes behind a zero byte included
  std::string portName;     // named form: ends before the first zero byte
  uint16_t parameter = 0;   // open and close; nobody reads it
  uint8_t blockCount = 0;   // data

 private:
  // Readers: true and the cursor moves, or false and it stays, because too few bytes are left.
  bool ReadU8(uint8_t& value);
  bool ReadU16(uint16_t& value);
  bool ReadBytes(uint8_t* destination, int32_t count);
  bool HasRemaining(int32_t count) const { return count <= size - readPos; }

  bool ParseHeader();
  bool ParseName();
  bool ParseBody();
  bool ParseParameter();
  bool ParseBlocks();
  bool ParseBlock();

  struct OwnedBlock {
    uint8_t type;
    uint16_t length;
    std::unique_ptr<uint8_t[]> data;
  };

  int32_t readPos;  // index in `buffer` of the next byte to read
  int32_t size;
  std::vector<uint8_t> buffer;
  std::vector<OwnedBlock> blocks;
};
