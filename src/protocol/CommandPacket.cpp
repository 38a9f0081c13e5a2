// SPDX-License-Identifier: MIT
#include "protocol/CommandPacket.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "protocol/WireFormat.h"

CommandPacket::CommandPacket(const uint8_t* bytes, uint32_t byteCount)
    : readPos(kLengthSize),  // deliberate: the length field is skipped, not compared with the size;
                             // pinned by CommandPacketTest.LengthFieldIsIgnored
      size(static_cast<int32_t>(byteCount)),
      buffer(bytes, bytes + byteCount) {
  parsedOk = ParseHeader() && ParseBody() && readPos == size;
}

void CommandPacket::GetBlock(uint32_t index, DataBlock& block) const {
  if (index < blocks.size()) {
    const OwnedBlock& stored = blocks[index];
    block = {stored.type, stored.length, stored.data.get()};
  }
}

bool CommandPacket::ReadU8(uint8_t& value) {
  if (!HasRemaining(1)) {
    return false;
  }
  value = buffer[static_cast<size_t>(readPos)];
  readPos += 1;
  return true;
}

bool CommandPacket::ReadU16(uint16_t& value) {
  if (!HasRemaining(2)) {
    return false;
  }
  const auto position = static_cast<size_t>(readPos);
  value = FromBytes(buffer[position], buffer[position + 1]);
  readPos += 2;
  return true;
}

bool CommandPacket::ReadBytes(uint8_t* destination, int32_t count) {
  if (!HasRemaining(count)) {
    return false;
  }
  std::copy_n(buffer.begin() + readPos, count, destination);
  readPos += count;
  return true;
}

bool CommandPacket::ParseHeader() {
  if (!ReadU8(command) || !ReadU8(portForm)) {
    return false;
  }
  switch (portForm) {
    case kNumberedPort:
      return ReadU16(portId1) && ReadU16(portId2);
    case kNamedPort:
      return ParseName();
    default:
      return false;
  }
}

bool CommandPacket::ParseName() {
  if (!ReadU16(nameLength) || nameLength == 0) {
    return false;
  }
  if (!HasRemaining(nameLength)) {
    return false;
  }
  const std::string_view name(reinterpret_cast<const char*>(buffer.data()) + readPos, nameLength);
  portName = name.substr(0, name.find('\0'));
  readPos += nameLength;
  return true;
}

bool CommandPacket::ParseBody() {
  switch (command) {
    case kCommandOpen:
    case kCommandClose:
      return ParseParameter();
    case kCommandData:
      return ParseBlocks();
    default:
      return false;
  }
}

bool CommandPacket::ParseParameter() { return readPos == size || ReadU16(parameter); }

bool CommandPacket::ParseBlocks() {
  if (!ReadU8(blockCount)) {
    return false;
  }
  for (int i = 0; i < blockCount; ++i) {
    if (!ParseBlock()) {
      return false;
    }
  }
  return true;
}

bool CommandPacket::ParseBlock() {
  OwnedBlock block{};
  if (!ReadU8(block.type) || !ReadU16(block.length)) {
    return false;
  }
  // Checked first: a length that the packet does not hold must not cost its memory.
  if (!HasRemaining(block.length)) {
    return false;
  }
  block.data = std::make_unique_for_overwrite<uint8_t[]>(block.length);
  (void)ReadBytes(block.data.get(), block.length);
  blocks.push_back(std::move(block));
  return true;
}
